// The layout of the help: two columns, and lines no wider than a terminal.
#include "CommandLine/Help.h"

#include <gtest/gtest.h>

namespace {

class Help : public testing::Test {
protected:
  // The help between the usage and the options of every command, or behind these.
  std::string help() { return kw::helpFor(program_, declared, surroundings_); }
  std::string rows() {
    std::string text = help();
    std::size_t start = text.find("\n\n") + 2;
    return text.substr(start, text.find("\nOptions of every command:\n") - start);
  }
  std::string behind() {
    std::string text = help();
    return text.substr(text.find("  --version "));
  }

  kw::Command command{.name = "tidy", .summary = "Tidy up", .declare = nullptr};
  kw::DeclaredCommand declared{
      .command = &command, .words = "tidy", .run = [](kw::Session &) { return 0; }};
  bool flag = false;

private:
  kw::GlobalOptions options_;
  kw::Program program_{options_};
  kw::Surroundings surroundings_;
};

TEST_F(Help, beginsWithTheSummaryAndTheUsage) {
  std::string path;
  declared.arguments.operand("path", path, "PATH", "The folder");
  EXPECT_TRUE(help().starts_with("Tidy up.\nUsage: keepwell tidy PATH\n\nArguments:\n"
                                 "  PATH                        The folder\n"))
      << help();
}

TEST_F(Help, putsADescriptionBesideANameThatLeavesRoomForTwoSpaces) {
  std::string name = "--" + std::string(24, 'n');
  declared.arguments.flag(name, flag, "Just fits");
  declared.arguments.flag(name + "n", flag, "Too long");
  EXPECT_EQ(rows(), "Options:\n  " + name + "  Just fits\n  " + name + "n\n" +
                        std::string(30, ' ') + "Too long\n");
}

TEST_F(Help, fillsLinesUpToTheEightiethColumn) {
  std::string half(24, 'x'), indent(30, ' ');
  declared.arguments.flag("-a", flag, half + " " + half + "x");
  declared.arguments.flag("-b", flag, half + " " + half + "xx");
  EXPECT_EQ(rows(), "Options:\n  -a" + std::string(26, ' ') + half + " " + half + "x\n  -b" +
                        std::string(26, ' ') + half + "\n" + indent + half + "xx\n");
}

TEST_F(Help, beginsEachParagraphAndItsFurtherLinesAtTheMargin) {
  std::string forty(40, 'x');
  std::string note = forty + " " + forty + "\nNext.";
  command.note = note.c_str();
  EXPECT_NE(behind().find("\n\n" + forty + "\n" + forty + "\nNext.\n"), std::string::npos)
      << behind();
}

TEST_F(Help, hasNoEmptyLineBeforeAWordThatIsWiderThanALine) {
  std::string wide(81, 'x');
  command.note = wide.c_str();
  EXPECT_NE(behind().find("\n\n" + wide + "\n\n"), std::string::npos) << behind();
  EXPECT_EQ(behind().find("\n\n\n"), std::string::npos) << behind();
}

TEST_F(Help, indentsTheMeaningOfAnExample) {
  std::string forty(40, 'x');
  std::string meaning = forty + " " + forty;
  command.examples = {{"tidy /srv", meaning.c_str()}};
  EXPECT_NE(behind().find("\n\nExamples:\n  keepwell tidy /srv\n      " + forty + "\n      " +
                          forty + "\n\nExit status: 0 done"),
            std::string::npos)
      << behind();
}

} // namespace
