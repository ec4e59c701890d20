// The report on a tree, as a person and as a program get it.
#include "CommandLine/SizeReport.h"

#include "Support/Terminal.h"

#include <gtest/gtest.h>

namespace {

using kw::MeasuredItem;
using kw::SizeReport;

MeasuredItem item(const std::string &name, std::uint64_t bytes,
                  MeasuredItem::Kind kind = MeasuredItem::Kind::File) {
  MeasuredItem result;
  result.name = name;
  result.bytes = bytes;
  result.kind = kind;
  return result;
}

MeasuredItem folder(const std::string &name, std::vector<MeasuredItem> children) {
  MeasuredItem result = item(name, 0, MeasuredItem::Kind::Folder);
  for (const MeasuredItem &each : children)
    result.bytes += each.bytes;
  result.children = std::move(children);
  return result;
}

std::string shown(const SizeReport &report, const MeasuredItem &root, bool toAPerson = true) {
  kwtest::Terminal terminal;
  terminal.surroundings.outIsTerminal = toAPerson;
  kw::Session session(terminal.surroundings, terminal.options);
  report.say(session, root.name, root);
  return terminal.screen.str();
}

TEST(SizeReport, indentsEachLevelAndSumsUpTheRest) {
  MeasuredItem root = folder("/top", {folder("a", {item("x", 50'000), item("y", 20'000)}),
                                      item("b", 20'000), item("c", 6'000), item("d", 4'000)});
  SizeReport report;
  report.least = 20'000;
  EXPECT_EQ(shown(report, root), "    100 KB 100% #################### /top/\n"
                                 "     70 KB  70% ##############         a/\n"
                                 "     50 KB  50% ##########               x\n"
                                 "     20 KB  20% ####                     y\n"
                                 "     20 KB  20% ####                   b\n"
                                 "     10 KB  10%                        2 more\n");
  report.most = 1;
  EXPECT_EQ(shown(report, root), "    100 KB 100% #################### /top/\n"
                                 "     70 KB  70% ##############         a/\n"
                                 "     50 KB  50% ##########               x\n"
                                 "     20 KB  20%                          1 more\n"
                                 "     30 KB  30%                        3 more\n");
}

TEST(SizeReport, countsTheRestExactly) {
  SizeReport report;
  report.units = kw::Units::Plain;
  report.most = 1;
  EXPECT_TRUE(shown(report, folder("/top", {item("a", 7), item("b", 2), item("c", 1)}))
                  .ends_with("         3  30%                        2 more\n"));
}

TEST(SizeReport, hasNoSecondSlashBelowTheRoot) {
  MeasuredItem root = folder("/", {folder("a", {item("x", 4'000)})});
  EXPECT_EQ(shown({}, root), "      4 KB 100% #################### /\n"
                             "      4 KB 100% ####################   a/\n"
                             "      4 KB 100% ####################     x\n");
  EXPECT_EQ(shown({}, root, false), "4 KB\t/\n4 KB\t/a\n4 KB\t/a/x\n");
}

TEST(SizeReport, namesEachKindToPrograms) {
  using Kind = MeasuredItem::Kind;
  for (const auto &[kind, name] : {std::pair{Kind::File, "file"},
                                   {Kind::Folder, "folder"},
                                   {Kind::Link, "link"},
                                   {Kind::Other, "other"}}) {
    kw::JSONObject object;
    EXPECT_NE(SizeReport()
                  .add(object, item("a", 1, kind))
                  .text()
                  .find("\"kind\":\"" + std::string(name) + "\""),
              std::string::npos);
  }
}

TEST(SizeReport, tellsProgramsHowMuchWasSeen) {
  using Sight = MeasuredItem::Sight;
  for (const auto &[sight, text] : {std::pair{Sight::Whole, ""},
                                    {Sight::Measured, ",\"sight\":\"measured\""},
                                    {Sight::Partial, ",\"sight\":\"partial\""}}) {
    MeasuredItem file = item("a", 1000);
    file.sight = sight;
    kw::JSONObject object;
    EXPECT_EQ(SizeReport().add(object, file).text(),
              std::string(R"({"bytes":1000,"text":"1 KB","items":1,"kind":"file")") + text + "}");
  }
}

} // namespace
