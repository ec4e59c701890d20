// Our property lists against those of two other programs, both ways: Python's
// plistlib and plistutil.
#include "Foundation/Files/FileContents.h"
#include "Foundation/PropertyLists/PropertyList.h"

#include "Support/ScratchFolder.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

constexpr int listCount = 150;

// Writes N.bin, N.xml and, where no number makes the layouts differ, N.same:
// the XML that must come out byte for byte.
constexpr const char *generator = R"(
import datetime, plistlib, random, sys
random.seed(20010101)
folder, count = sys.argv[1], int(sys.argv[2])
letters = 'abcXYZ019 _-.<>&"\'\n\té€' + '\U0001f600'
has_real = False

def text():
    return ''.join(random.choice(letters) for _ in range(random.choice((0, 1, 5, 14, 15, 16, 300))))

def value(depth):
    global has_real
    kind = random.randrange(10 if depth < 5 else 7)
    if kind == 0: return random.choice((True, False))
    if kind == 1: return random.choice((0, 1, 255, 256, 65536, 2**31, 2**63 - 1, 2**64 - 1, -1,
                                        -2**63, random.randrange(-2**40, 2**40)))
    if kind == 2:
        has_real = True
        return random.choice((0.0, 0.1, -1.5e300, 5e-324, random.random()))
    if kind == 3: return datetime.datetime(1, 1, 1) + datetime.timedelta(
        seconds=random.randrange(0, 315537897599))
    if kind == 4: return bytes(random.randrange(256) for _ in range(random.choice((0, 1, 2, 3, 200))))
    if kind < 7: return text()
    if kind < 9: return {text().replace('\U0001f600', '!'): value(depth + 1)
                         for _ in range(random.choice((0, 1, 3, 20)))}
    return [value(depth + 1) for _ in range(random.choice((0, 1, 4, 20)))]

for number in range(count):
    has_real = False
    root = {'root': value(0), 'also': [value(1), value(2)]}
    for name, form in (('bin', plistlib.FMT_BINARY), ('xml', plistlib.FMT_XML)):
        with open(f'{folder}/{number}.{name}', 'wb') as file:
            plistlib.dump(root, file, fmt=form)
    if not has_real:
        with open(f'{folder}/{number}.same', 'wb') as file:
            plistlib.dump(root, file, fmt=plistlib.FMT_XML)
)";

// Exits with 0 when every N.ours equals N.bin.
constexpr const char *comparer = R"(
import plistlib, sys
folder, count = sys.argv[1], int(sys.argv[2])
load = lambda name: plistlib.load(open(f'{folder}/{name}', 'rb'))
different = [number for number in range(count) if load(f'{number}.ours') != load(f'{number}.bin')]
print('different:', different)
sys.exit(1 if different else 0)
)";

bool has(const std::string &program) {
  return std::system(("command -v " + program + " >/dev/null 2>&1").c_str()) == 0;
}

class PropertyListOracle : public testing::Test {
protected:
  void SetUp() override {
    if (!has("python3"))
      GTEST_SKIP() << "python3 is not installed";
    ASSERT_EQ(python(generator), 0);
  }

  int python(const char *source) const {
    std::string script = scratch.file("script.py", source);
    return std::system(
        ("python3 " + script + " " + scratch.path() + " " + std::to_string(listCount)).c_str());
  }

  kwtest::ScratchFolder scratch;
};

std::optional<NS::PropertyList> readFile(const std::string &path) {
  auto data = NS::FileContents::shared().dataWithContentsOfFile(path, nullptr);
  return data ? NS::propertyListWithData(*data, nullptr) : std::nullopt;
}

TEST_F(PropertyListOracle, plistlibReadsAndWritesTheSame) {
  int identical = 0;
  for (int number = 0; number < listCount; ++number) {
    std::string name = std::to_string(number);
    auto binary = readFile(scratch.path(name + ".bin")),
         xml = readFile(scratch.path(name + ".xml"));
    ASSERT_TRUE(binary && xml) << number;
    EXPECT_EQ(*binary, *xml) << number;
    auto ours = NS::dataWithPropertyList(*binary, nullptr);
    ASSERT_TRUE(ours) << number;
    scratch.file(name + ".ours", *ours);
    EXPECT_EQ(NS::propertyListWithData(*ours, nullptr), *binary) << number;
    if (std::filesystem::exists(scratch.path(name + ".same"))) {
      EXPECT_EQ(*ours, scratch.content(name + ".same")) << number;
      ++identical;
    }
  }
  EXPECT_GT(identical, listCount / 10);
  EXPECT_EQ(python(comparer), 0);
}

TEST_F(PropertyListOracle, plistutilReadsAndWritesTheSame) {
  if (!has("plistutil"))
    GTEST_SKIP() << "plistutil is not installed";
  for (int number = 0; number < listCount; number += 5) {
    std::string base = scratch.path(std::to_string(number));
    auto list = readFile(base + ".bin");
    ASSERT_TRUE(list) << number;
    scratch.file(std::to_string(number) + ".ours", *NS::dataWithPropertyList(*list, nullptr));
    for (const char *form : {"bin", "xml"}) {
      std::string theirs = base + ".their-" + form;
      ASSERT_EQ(std::system(("plistutil -f " + std::string(form) + " -i " + base + ".ours -o " +
                             theirs + " >/dev/null 2>&1")
                                .c_str()),
                0)
          << number;
      EXPECT_EQ(readFile(theirs), list) << number << ' ' << form;
    }
  }
}

} // namespace
