// The programs that start by a desktop entry: its two layers of quoting, and
// malformed entries.
#include "Foundation/Desktop/Linux/DesktopEntry.h"

#include <gtest/gtest.h>

namespace {

using Arguments = std::vector<std::string>;

std::optional<Arguments> argumentsOf(const std::string &value) {
  auto exec = NS::desktopEntryFromText("[Desktop Entry]\nExec=" + value + "\n").exec;
  return exec ? NS::argumentsOfExec(*exec) : std::nullopt;
}

TEST(DesktopEntry, readsNameAndCommandOfItsGroupAlone) {
  auto entry = NS::desktopEntryFromText("# comment\n"
                                        "Name=before any group\n"
                                        "[Desktop Entry]\r\n"
                                        "Type=Application\r\n"
                                        " Name = An App \r\n"
                                        "Name[de]=Eine App\n"
                                        "#Name=no\n"
                                        "Exec=/usr/bin/app --start\n"
                                        "no equals sign\n"
                                        "[Desktop Action new]\n"
                                        "Name=New\n"
                                        "Exec=/usr/bin/other");
  EXPECT_EQ(entry.name, "An App");
  EXPECT_EQ(entry.exec, "/usr/bin/app --start");
}

TEST(DesktopEntry, saysNothingWhereNothingIsSaid) {
  for (const char *text : {"", "\n\n", "[Desktop Entry]", "Exec=/a", "[Other]\nExec=/a\nName=b",
                           "[Desktop Entry\nExec=/a", "\0\xff=[]\n="}) {
    auto entry = NS::desktopEntryFromText(text);
    EXPECT_EQ(entry.name, std::nullopt);
    EXPECT_EQ(entry.exec, std::nullopt);
  }
  EXPECT_EQ(NS::desktopEntryFromText("[Desktop Entry]\nName=\n").name, "");
}

TEST(DesktopEntry, ofAKeyGivenTwiceTheLastCounts) {
  EXPECT_EQ(NS::desktopEntryFromText("[Desktop Entry]\nName=a\nName=b").name, "b");
}

TEST(DesktopEntry, resolvesTheEscapesOfValues) {
  EXPECT_EQ(NS::desktopEntryFromText(R"([Desktop Entry]
Name=a\sb\nc\td\\e\q\)")
                .name,
            "a b\nc\td\\e\\q\\");
  EXPECT_EQ(NS::desktopEntryFromText("[Desktop Entry]\nName=a\\s").name, "a ");
}

TEST(DesktopEntry, isReadNoFurtherThanItsText) {
  constexpr std::string_view text = "[Desktop Entry]\nName=a\\n";
  EXPECT_EQ(NS::desktopEntryFromText(text.substr(0, text.size() - 1)).name, "a\\");
}

TEST(DesktopEntryCommand, isSplitAtBlanks) {
  EXPECT_EQ(argumentsOf("/usr/bin/a"), Arguments{"/usr/bin/a"});
  EXPECT_EQ(argumentsOf("/usr/bin/a  -b\tc "), (Arguments{"/usr/bin/a", "-b", "c"}));
  EXPECT_EQ(argumentsOf(""), Arguments{});
}

TEST(DesktopEntryCommand, keepsTheTextBetweenQuotesTogether) {
  EXPECT_EQ(argumentsOf(R"("/opt/My App/run" "" x)"), (Arguments{"/opt/My App/run", "", "x"}));
  EXPECT_EQ(argumentsOf(R"(a"b c"d)"), Arguments{"ab cd"});
  // Each backslash of the quoting is itself escaped in the value.
  EXPECT_EQ(argumentsOf(R"("a\\"b\\`c\\$d\\\\e")"), Arguments{"a\"b`c$d\\e"});
  EXPECT_EQ(argumentsOf(R"("a\\xb")"), Arguments{"a\\xb"});
  EXPECT_EQ(argumentsOf(R"(a\sb)"), (Arguments{"a", "b"}));
  EXPECT_EQ(argumentsOf(R"("a\sb")"), Arguments{"a b"});
}

TEST(DesktopEntryCommand, withAQuoteThatDoesNotEndIsNone) {
  EXPECT_EQ(argumentsOf("\"/usr/bin/a"), std::nullopt);
  EXPECT_EQ(argumentsOf("a \""), std::nullopt);
  EXPECT_EQ(NS::argumentsOfExec("\"a\\\""), std::nullopt) << "an escaped quote";
}

TEST(DesktopEntryCommand, isReadNoFurtherThanItsText) {
  using Text = std::string_view;
  EXPECT_EQ(NS::argumentsOfExec(Text("a\\b", 2)), Arguments{"a\\"});
  EXPECT_EQ(NS::argumentsOfExec(Text("a %%", 3)), Arguments{"a"});
  EXPECT_EQ(NS::argumentsOfExec(Text("\"a\"", 2)), std::nullopt);
}

TEST(DesktopEntryCommand, losesItsFieldCodes) {
  EXPECT_EQ(argumentsOf("/usr/bin/a %U"), Arguments{"/usr/bin/a"});
  EXPECT_EQ(argumentsOf("/usr/bin/a %f -x%i %c%k"), (Arguments{"/usr/bin/a", "-x"}));
  EXPECT_EQ(argumentsOf("/usr/bin/100%% %"), Arguments{"/usr/bin/100%"});
}

} // namespace
