// Reading of job lists, and of a line of launchd's configuration.
#include "Tools/KWLaunchdManager.h"

#include "Support/LogRecorder.h"
#include "Support/ScratchFolder.h"

#include "Foundation/Base/Exception.h"

#include <gtest/gtest.h>

namespace {

class KWLaunchdManagerConfigurationTest : public testing::Test {
protected:
  std::string job(const std::string &entries) {
    return scratch.file("job.plist", "<dict>" + entries + "</dict>");
  }
  std::string program(const std::string &path) {
    return job("<key>Program</key><string>" + path + "</string>");
  }
  std::string arguments(const std::vector<std::string> &elements, const std::string &more = "") {
    std::string array;
    for (const std::string &element : elements)
      array += "<string>" + element + "</string>";
    return job("<key>ProgramArguments</key><array>" + array + "</array>" + more);
  }
  // An application bundle in the scratch folder; the path of its executable.
  std::string application() {
    std::filesystem::create_directories(scratch.path("A.app/Contents/MacOS"));
    scratch.file("A.app/Contents/Info.plist",
                 "<dict><key>CFBundleExecutable</key><string>A</string></dict>");
    return scratch.file("A.app/Contents/MacOS/A", "");
  }
  std::optional<std::string> found(const std::string &path) {
    accurate = false;
    return manager.startupApplicationPath(path, &accurate);
  }

  kwtest::ScratchFolder scratch;
  kwtest::LogRecorder log;
  kw::KWLaunchdManager manager;
  bool accurate = false;
};

TEST_F(KWLaunchdManagerConfigurationTest, readsLabelProgramAndFlags) {
  std::string path = job("<key>Label</key><string>x</string><key>RunAtLoad</key><true/>"
                         "<key>Program</key><integer>7</integer>"
                         "<key>StartCalendarInterval</key><string/>");
  EXPECT_EQ(manager.jobLabelForLaunchdAgent(path), "x");
  EXPECT_EQ(manager.getAppPathOfLaunchDaemon(path), NS::PropertyList(7));
  EXPECT_TRUE(manager.launchdShouldRunAtLoad(path));
  EXPECT_TRUE(manager.isAgentLaunchingPeriodicallyWithConfigPath(path));
}

TEST_F(KWLaunchdManagerConfigurationTest, readsNothingFromAListWithoutTheKeys) {
  for (const std::string &path : {job(""), scratch.path("missing"), scratch.file("x", "garbage")}) {
    EXPECT_EQ(manager.jobLabelForLaunchdAgent(path), std::nullopt);
    EXPECT_EQ(manager.getAppPathOfLaunchDaemon(path), std::nullopt);
    EXPECT_FALSE(manager.launchdShouldRunAtLoad(path));
    EXPECT_FALSE(manager.isAgentLaunchingPeriodicallyWithConfigPath(path));
    EXPECT_EQ(found(path), std::nullopt);
    EXPECT_TRUE(accurate);
    EXPECT_EQ(manager.startupApplicationPath(path), std::nullopt);
  }
}

TEST_F(KWLaunchdManagerConfigurationTest, cutsAPathAfterItsApplication) {
  struct Row {
    const char *text;
    std::optional<std::string> appPath, executablePath;
  };
  for (const Row &row : {Row{"/Applications/Foo.app/Contents/MacOS/Foo", "/Applications/Foo.app",
                             "/Applications/Foo.app/Contents/MacOS/Foo"},
                         Row{"/Applications/Foo.app", "/Applications/Foo.app", "untouched"},
                         Row{"/usr/bin/foo", std::nullopt, "untouched"},
                         Row{"/opt/x.application/bin", "/opt/x.app", "/opt/x.application/bin"},
                         Row{"/a.app/b.app/c", "/a.app", "/a.app/b.app/c"},
                         Row{"/Foo.APP/x", std::nullopt, "untouched"},
                         Row{".app", ".app", "untouched"}, Row{"", std::nullopt, "untouched"}}) {
    std::optional<std::string> executablePath = "untouched";
    EXPECT_EQ(manager.appPathFormObject(NS::PropertyList(row.text), &executablePath), row.appPath);
    EXPECT_EQ(executablePath, row.executablePath) << row.text;
    EXPECT_EQ(manager.appPathFormObject(NS::PropertyList(row.text), nullptr), row.appPath);
  }
  EXPECT_EQ(manager.appPathFormObject(NS::PropertyList(1), nullptr), std::nullopt);
  EXPECT_EQ(manager.appPathFormObject(std::nullopt, nullptr), std::nullopt);
}

TEST_F(KWLaunchdManagerConfigurationTest, takesTheFirstArgumentThatNamesAnApplication) {
  EXPECT_EQ(
      found(arguments({"/bin/sh", "-c", "/Applications/None.app/Contents/MacOS/A", "/B.app"})),
      "/Applications/None.app");
  EXPECT_FALSE(accurate);
  std::string executable = application();
  EXPECT_EQ(found(arguments({"/bin/sh", "-c", executable})), scratch.path("A.app"));
  EXPECT_TRUE(accurate);
  EXPECT_EQ(manager.startupApplicationPath(arguments({executable})), scratch.path("A.app"));
  EXPECT_EQ(found(arguments({executable + " --quiet"})), scratch.path("A.app"));
  EXPECT_FALSE(accurate);
  EXPECT_EQ(manager.startupApplicationPath(arguments({executable + " --quiet"})), std::nullopt);
}

TEST_F(KWLaunchdManagerConfigurationTest, prefersTheArgumentsToTheProgram) {
  std::string more = "<key>Program</key><string>/Applications/P.app</string>";
  EXPECT_EQ(found(arguments({"/Applications/A.app"}, more)), "/Applications/A.app");
  EXPECT_EQ(found(arguments({"/bin/sh"}, more)), "/Applications/P.app");
  EXPECT_EQ(found(arguments({}, more)), "/Applications/P.app");
}

TEST_F(KWLaunchdManagerConfigurationTest, isAccurateForTheBundleItself) {
  EXPECT_EQ(found(program("/Applications/A.app")), "/Applications/A.app");
  EXPECT_TRUE(accurate);
  EXPECT_EQ(manager.startupApplicationPath(program("/Applications/A.app")), "/Applications/A.app");
  EXPECT_EQ(manager.startupApplicationPath(program("/Applications/A.app"), nullptr),
            "/Applications/A.app");
}

TEST_F(KWLaunchdManagerConfigurationTest, logsArgumentsOtherThanAnArrayAndGoesOn) {
  EXPECT_EQ(found(job("<key>ProgramArguments</key><string>/A.app</string>"
                      "<key>Program</key><string>/P.app</string>")),
            "/P.app");
  EXPECT_EQ(log.lines(),
            std::vector<std::string>{"Expected array for \"ProgramArguments\", but has /A.app"});
}

TEST_F(KWLaunchdManagerConfigurationTest, passesOverArgumentsOtherThanStrings) {
  EXPECT_EQ(found(job("<key>ProgramArguments</key><array><integer>1</integer><dict/>"
                      "<string>/A.app</string></array>")),
            "/A.app");
}

TEST_F(KWLaunchdManagerConfigurationTest, takesALibraryOutOfItsLine) {
  struct Row {
    const char *library, *line;
    std::optional<std::string> result;
  };
  for (const Row &row :
       {Row{"/usr/lib/x.dylib", "setenv DYLD_INSERT_LIBRARIES /usr/lib/x.dylib", std::nullopt},
        Row{"/usr/lib/x.dylib", "setenv DYLD_INSERT_LIBRARIES /a.dylib:/usr/lib/x.dylib",
            "setenv DYLD_INSERT_LIBRARIES \"/a.dylib\""},
        Row{"/x", "setenv DYLD_INSERT_LIBRARIES /a:/b", "setenv DYLD_INSERT_LIBRARIES /a:/b"},
        Row{"/x", "umask 022", "umask 022"}, Row{"", "setenv A b", "setenv A b"},
        Row{"/x", "setenv DYLD_INSERT_LIBRARIES /x:/x : /x", std::nullopt},
        Row{"/x", "setenv DYLD_INSERT_LIBRARIES /x:/xy", "setenv DYLD_INSERT_LIBRARIES \"/xy\""},
        Row{"/x", "setenv DYLD_INSERT_LIBRARIES  /a : /x:: /b ",
            "setenv DYLD_INSERT_LIBRARIES \"/a::/b\""},
        // A quote that touches the library keeps it, and a second pair comes on.
        Row{"/x", "setenv DYLD_INSERT_LIBRARIES \"/a:/x\"",
            "setenv DYLD_INSERT_LIBRARIES \"\"/a:/x\"\""}})
    EXPECT_EQ(manager.removeLibrary(row.library, row.line), row.result) << row.line;
}

TEST_F(KWLaunchdManagerConfigurationTest, raisesForALineOfAnotherVariable) {
  try {
    static_cast<void>(manager.removeLibrary("/x", "setenv OTHER /x"));
    FAIL() << "nothing was raised";
  } catch (const NS::Exception &exception) {
    EXPECT_EQ(exception.name(), NS::RangeException);
  }
}

} // namespace
