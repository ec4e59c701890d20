// Objects with counted references and the calls that make, read and release
// them.
#include "Darwin/ServicesShim.h"

#include "Foundation/Values/macOS/CoreFoundationValues.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <glib.h>
#include <gtest/gtest.h>
#include <set>

using namespace kwtest::darwin;

namespace {

enum TypeID : CFTypeID { AnyType, String, URL, Number, Boolean_, Date, Array, Item, List, MDItem };

// One type for every class; an object uses the fields of its class.
struct PlatformObject {
  TypeID type;
  int references = 1;
  std::string text;         // of strings; the path of URLs and items
  bool flag = false;        // of truth values; a folder's URL; a real number
  bool isBroken = false;    // text that UTF-8 cannot express
  double real = 0;          // of dates and numbers
  std::int64_t integer = 0; // of numbers; the place of a login item
  std::vector<PlatformObject *> elements;
};

std::set<const PlatformObject *> &living() {
  static std::set<const PlatformObject *> objects;
  return objects;
}

PlatformObject *made(PlatformObject content) {
  auto *object = new PlatformObject(std::move(content));
  living().insert(object);
  ++services().objects;
  return object;
}

PlatformObject &objectOf(const void *reference) {
  auto *object = static_cast<const PlatformObject *>(reference);
  if (!living().contains(object)) {
    std::fputs("a call was given an object that is released or none\n", stderr);
    std::abort();
  }
  return *const_cast<PlatformObject *>(object);
}

template <typename Reference> Reference as(PlatformObject *object) {
  return reinterpret_cast<Reference>(object);
}

PlatformObject *objectFor(const PlatformValue &value) {
  if (auto *flag = std::get_if<bool>(&value))
    return made({.type = Boolean_, .text = {}, .flag = *flag, .elements = {}});
  if (auto *integer = std::get_if<std::int64_t>(&value))
    return made({.type = Number, .text = {}, .integer = *integer, .elements = {}});
  if (auto *real = std::get_if<double>(&value))
    return made({.type = Number, .text = {}, .flag = true, .real = *real, .elements = {}});
  if (auto *text = std::get_if<std::string>(&value))
    return made({.type = String, .text = *text, .elements = {}});
  if (auto *date = std::get_if<PlatformDate>(&value))
    return made({.type = Date, .text = {}, .real = date->seconds, .elements = {}});
  if (std::holds_alternative<UnpairedSurrogate>(value))
    return made({.type = String, .text = "x", .isBroken = true, .elements = {}});
  return made({.type = AnyType, .text = {}, .elements = {}});
}

CFStringRef constantString(const char *text) {
  auto *object = new PlatformObject{.type = String, .text = text, .elements = {}};
  living().insert(object);
  return as<CFStringRef>(object);
}

PlatformObject *urlObject(std::string path, bool isFolder) {
  while (path.size() > 1 && path.ends_with('/'))
    path.pop_back();
  return made({.type = URL, .text = std::move(path), .flag = isFolder, .elements = {}});
}

// How the answers are keyed: a folder's with a slash.
std::string keyOf(const PlatformObject &url) {
  return url.flag ? url.text + "/" : url.text;
}

glong codeUnits(const std::string &text) {
  glong count = 0;
  g_free(g_utf8_to_utf16(text.data(), static_cast<glong>(text.size()), nullptr, &count, nullptr));
  return count;
}

FSRef referenceTo(const std::string &path) {
  FSRef reference{};
  path.copy(reinterpret_cast<char *>(reference.hidden), sizeof reference.hidden - 1);
  return reference;
}
std::string pathOf(const FSRef &reference) {
  return reinterpret_cast<const char *>(reference.hidden);
}

PlatformValue *find(std::map<std::string, PlatformValues> &all, const std::string &item,
                    const std::string &name) {
  auto values = all.find(item);
  if (values == all.end())
    return nullptr;
  auto value = values->second.find(name);
  return value == values->second.end() ? nullptr : &value->second;
}

Services::LoginItem &loginItem(const void *item) {
  return services().loginItems.at(static_cast<std::size_t>(objectOf(item).integer));
}

} // namespace

namespace kwtest::darwin {

Services &services() {
  static Services instance;
  return instance;
}

ServicesScope::~ServicesScope() {
  EXPECT_EQ(services().objects, 0) << "every object is released once";
  EXPECT_EQ(services().pools, 0) << "every pool is popped";
}

} // namespace kwtest::darwin

extern "C" {

extern const double NSAppKitVersionNumber;
const double NSAppKitVersionNumber = 2113.2;

const CFAllocatorRef kCFAllocatorDefault = nullptr;
const CFStringRef kCFURLEffectiveIconKey = constantString("icon");
const CFStringRef kCFURLLocalizedNameKey = constantString("name");
const CFStringRef kCFURLTypeIdentifierKey = constantString("type");
CFStringRef kLSSharedFileListGlobalLoginItems = constantString("global login items");

void *objc_autoreleasePoolPush(void) {
  return &++services().pools;
}
void objc_autoreleasePoolPop(void *) {
  --services().pools;
}

CFTypeRef CFRetain(CFTypeRef object) {
  ++objectOf(object).references;
  return object;
}
void CFRelease(CFTypeRef reference) {
  PlatformObject &object = objectOf(reference);
  if (--object.references > 0)
    return;
  for (PlatformObject *element : object.elements)
    CFRelease(element);
  living().erase(&object);
  --services().objects;
  delete &object;
}
CFTypeID CFGetTypeID(CFTypeRef object) {
  return objectOf(object).type;
}

CFIndex CFArrayGetCount(CFArrayRef array) {
  return static_cast<CFIndex>(objectOf(array).elements.size());
}
const void *CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index) {
  return objectOf(array).elements.at(static_cast<std::size_t>(index));
}

CFTypeID CFBooleanGetTypeID(void) {
  return Boolean_;
}
Boolean CFBooleanGetValue(CFBooleanRef boolean) {
  return objectOf(boolean).flag;
}
CFTypeID CFDateGetTypeID(void) {
  return Date;
}
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date) {
  return objectOf(date).real;
}
CFTypeID CFNumberGetTypeID(void) {
  return Number;
}
Boolean CFNumberIsFloatType(CFNumberRef number) {
  return objectOf(number).flag;
}
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void *value) {
  const PlatformObject &object = objectOf(number);
  if (type == kCFNumberFloat64Type)
    *static_cast<double *>(value) = object.flag ? object.real : static_cast<double>(object.integer);
  else
    *static_cast<std::int64_t *>(value) =
        object.flag ? static_cast<std::int64_t>(object.real) : object.integer;
  return true;
}

CFTypeID CFStringGetTypeID(void) {
  return String;
}
CFStringRef CFStringCreateWithBytes(CFAllocatorRef, const UInt8 *bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean) {
  std::string text(reinterpret_cast<const char *>(bytes), static_cast<std::size_t>(count));
  std::string withoutNUL = text; // which GLib refuses and the platform takes
  std::replace(withoutNUL.begin(), withoutNUL.end(), '\0', '0');
  if (encoding != kCFStringEncodingUTF8 ||
      !g_utf8_validate_len(withoutNUL.data(), withoutNUL.size(), nullptr))
    return nullptr;
  return as<CFStringRef>(made({.type = String, .text = text, .elements = {}}));
}
CFIndex CFStringGetLength(CFStringRef string) {
  return codeUnits(objectOf(string).text);
}
// Whole strings only. Without a buffer it measures.
CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding, UInt8, Boolean,
                         UInt8 *buffer, CFIndex size, CFIndex *usedBytes) {
  const PlatformObject &object = objectOf(string);
  EXPECT_EQ(range.location, 0);
  EXPECT_EQ(range.length, codeUnits(object.text));
  auto needed = static_cast<CFIndex>(object.text.size());
  if (usedBytes)
    *usedBytes = needed;
  if (buffer && size >= needed)
    std::memcpy(buffer, object.text.data(), object.text.size());
  return object.isBroken || (buffer && size < needed) ? 0 : range.length;
}

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef, const UInt8 *path, CFIndex length,
                                                 Boolean isDirectory) {
  return as<CFURLRef>(
      urlObject(std::string(reinterpret_cast<const char *>(path), static_cast<std::size_t>(length)),
                isDirectory));
}
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef, CFStringRef path, CFURLPathStyle style,
                                       Boolean isDirectory) {
  EXPECT_EQ(style, kCFURLPOSIXPathStyle);
  std::string text = objectOf(path).text;
  return text.empty() ? nullptr : as<CFURLRef>(urlObject(text, isDirectory));
}
CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style) {
  EXPECT_EQ(style, kCFURLPOSIXPathStyle);
  return as<CFStringRef>(made({.type = String, .text = objectOf(url).text, .elements = {}}));
}
Boolean CFURLHasDirectoryPath(CFURLRef url) {
  return objectOf(url).flag;
}
Boolean CFURLCopyResourcePropertyForKey(CFURLRef url, CFStringRef key, void *value, CFErrorRef *) {
  std::string item = keyOf(objectOf(url));
  if (!services().resources.contains(item))
    return false;
  const PlatformValue *found = find(services().resources, item, objectOf(key).text);
  *static_cast<const void **>(value) = found ? objectFor(*found) : nullptr;
  return true;
}

Boolean CFURLGetFSRef(CFURLRef url, FSRef *ref) {
  std::string path = objectOf(url).text;
  *ref = referenceTo(path);
  return services().aliasFiles.contains(path);
}
CFURLRef CFURLCreateFromFSRef(CFAllocatorRef, const FSRef *ref) {
  std::string path = pathOf(*ref);
  return path.empty() ? nullptr : as<CFURLRef>(urlObject(path, false));
}
OSErr FSResolveAliasFile(FSRef *ref, Boolean resolveAliasChains, Boolean *targetIsFolder,
                         Boolean *wasAliased) {
  const Services::AliasFile &alias = services().aliasFiles.at(pathOf(*ref));
  EXPECT_TRUE(resolveAliasChains);
  if (!alias.target)
    return fnfErr;
  *targetIsFolder = alias.isFolder;
  *wasAliased = alias.isAlias;
  *ref = referenceTo(*alias.target);
  return noErr;
}

OSStatus LSCopyItemInfoForURL(CFURLRef url, LSRequestedInfo what, LSItemInfoRecord *info) {
  services().requestedInfo.push_back(what);
  auto found = services().registered.find(keyOf(objectOf(url)));
  if (found == services().registered.end())
    return fnfErr;
  info->flags = found->second.flags;
  info->filetype = found->second.type;
  return noErr;
}

LSSharedFileListRef LSSharedFileListCreate(CFAllocatorRef, CFStringRef type, CFTypeRef options) {
  EXPECT_EQ(type, kLSSharedFileListGlobalLoginItems);
  EXPECT_EQ(options, nullptr);
  if (!services().hasLoginItems)
    return nullptr;
  return as<LSSharedFileListRef>(made({.type = List, .text = {}, .elements = {}}));
}
CFArrayRef LSSharedFileListCopySnapshot(LSSharedFileListRef list, UInt32 *) {
  EXPECT_EQ(objectOf(list).type, List);
  if (!services().hasSnapshot)
    return nullptr;
  std::vector<PlatformObject *> items;
  for (std::size_t place = 0; place < services().loginItems.size(); ++place)
    items.push_back(made(
        {.type = Item, .text = {}, .integer = static_cast<std::int64_t>(place), .elements = {}}));
  return as<CFArrayRef>(made({.type = Array, .text = {}, .elements = std::move(items)}));
}
OSStatus LSSharedFileListItemResolve(LSSharedFileListItemRef item,
                                     LSSharedFileListResolutionFlags flags, CFURLRef *url,
                                     FSRef *ref) {
  EXPECT_EQ(ref, nullptr);
  services().resolutionFlags.push_back(flags);
  const Services::LoginItem &found = loginItem(item);
  if (!found.path)
    return fnfErr;
  if (found.hasURL)
    *url = as<CFURLRef>(urlObject(*found.path, found.path->ends_with('/')));
  return found.resolutionStatus;
}
CFStringRef LSSharedFileListItemCopyDisplayName(LSSharedFileListItemRef item) {
  const Services::LoginItem &found = loginItem(item);
  return found.isNamed ? as<CFStringRef>(objectFor(found.name)) : nullptr;
}
OSStatus LSSharedFileListItemRemove(LSSharedFileListRef list, LSSharedFileListItemRef item) {
  EXPECT_EQ(objectOf(list).type, List);
  Services::LoginItem &found = loginItem(item);
  if (found.removalStatus == noErr)
    found.name = "(removed)";
  return found.removalStatus;
}

MDItemRef MDItemCreate(CFAllocatorRef, CFStringRef path) {
  const std::string &text = objectOf(path).text;
  if (!services().index.contains(text))
    return nullptr;
  return as<MDItemRef>(made({.type = MDItem, .text = text, .elements = {}}));
}
CFTypeRef MDItemCopyAttribute(MDItemRef item, CFStringRef name) {
  const PlatformValue *found = find(services().index, objectOf(item).text, objectOf(name).text);
  return found ? objectFor(*found) : nullptr;
}

} // extern "C"
