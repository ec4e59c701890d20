// The platform's CoreFoundation and CoreServices: their own headers, else
// declarations of the parts that the bodies here use. The cross compiler has no
// such headers.
#pragma once

#if __has_include(<CoreServices/CoreServices.h>)
#include <CoreServices/CoreServices.h>
#else

extern "C" {

typedef unsigned char Boolean;
typedef unsigned char UInt8;
typedef unsigned int UInt32;
typedef short OSErr;
typedef int OSStatus;
typedef UInt32 OSType;
typedef UInt32 OptionBits;

// CoreFoundation.
typedef signed long CFIndex;
typedef unsigned long CFTypeID;
typedef double CFAbsoluteTime; // seconds since 2001
typedef const void *CFTypeRef;
typedef const struct __CFAllocator *CFAllocatorRef;
typedef const struct __CFArray *CFArrayRef;
typedef const struct __CFBoolean *CFBooleanRef;
typedef const struct __CFDate *CFDateRef;
typedef const struct __CFNumber *CFNumberRef;
typedef const struct __CFString *CFStringRef;
typedef const struct __CFURL *CFURLRef;
typedef struct __CFError *CFErrorRef;

typedef struct {
  CFIndex location;
  CFIndex length;
} CFRange;

typedef UInt32 CFStringEncoding;
enum : CFStringEncoding { kCFStringEncodingUTF8 = 0x08000100 };
typedef CFIndex CFNumberType;
enum : CFNumberType { kCFNumberSInt64Type = 4, kCFNumberFloat64Type = 6 };
typedef CFIndex CFURLPathStyle;
enum : CFURLPathStyle { kCFURLPOSIXPathStyle = 0 };

extern const CFAllocatorRef kCFAllocatorDefault;
extern const CFStringRef kCFURLEffectiveIconKey;
extern const CFStringRef kCFURLLocalizedNameKey;
extern const CFStringRef kCFURLTypeIdentifierKey;

void CFRelease(CFTypeRef object);
CFTypeRef CFRetain(CFTypeRef object);
CFTypeID CFGetTypeID(CFTypeRef object);

CFIndex CFArrayGetCount(CFArrayRef array);
const void *CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);

CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef boolean);

CFTypeID CFDateGetTypeID(void);
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);

CFTypeID CFNumberGetTypeID(void);
Boolean CFNumberIsFloatType(CFNumberRef number);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void *value);

CFTypeID CFStringGetTypeID(void);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8 *bytes, CFIndex count,
                                    CFStringEncoding encoding, Boolean hasByteOrderMark);
CFIndex CFStringGetLength(CFStringRef string);
// How many characters were converted; the bytes are counted into usedBytes.
CFIndex CFStringGetBytes(CFStringRef string, CFRange range, CFStringEncoding encoding,
                         UInt8 lossByte, Boolean withByteOrderMark, UInt8 *buffer, CFIndex size,
                         CFIndex *usedBytes);

CFURLRef CFURLCreateFromFileSystemRepresentation(CFAllocatorRef allocator, const UInt8 *path,
                                                 CFIndex length, Boolean isDirectory);
CFURLRef CFURLCreateWithFileSystemPath(CFAllocatorRef allocator, CFStringRef path,
                                       CFURLPathStyle style, Boolean isDirectory);
CFStringRef CFURLCopyFileSystemPath(CFURLRef url, CFURLPathStyle style);
Boolean CFURLHasDirectoryPath(CFURLRef url);
Boolean CFURLCopyResourcePropertyForKey(CFURLRef url, CFStringRef key, void *value,
                                        CFErrorRef *error);

// CarbonCore: files and aliases.
typedef struct FSRef {
  UInt8 hidden[80];
} FSRef;
enum { noErr = 0, fnfErr = -43 };
Boolean CFURLGetFSRef(CFURLRef url, FSRef *ref);
CFURLRef CFURLCreateFromFSRef(CFAllocatorRef allocator, const FSRef *ref);
OSErr FSResolveAliasFile(FSRef *ref, Boolean resolveAliasChains, Boolean *targetIsFolder,
                         Boolean *wasAliased);

// LaunchServices.
typedef OptionBits LSRequestedInfo;
enum : LSRequestedInfo { kLSRequestTypeCreator = 0x2, kLSRequestBasicFlagsOnly = 0x4 };
typedef OptionBits LSItemInfoFlags;
enum : LSItemInfoFlags { kLSItemInfoIsPackage = 0x2 };
enum { kLSUnknownErr = -10810 };
// At least as large as the platform's own, which may have its last field four
// bytes earlier. The bodies read only the first two fields.
typedef struct LSItemInfoRecord {
  LSItemInfoFlags flags;
  OSType filetype;
  OSType creator;
  CFStringRef extension;
} LSItemInfoRecord;
OSStatus LSCopyItemInfoForURL(CFURLRef url, LSRequestedInfo what, LSItemInfoRecord *info);

// SharedFileList.
typedef struct OpaqueLSSharedFileListRef *LSSharedFileListRef;
typedef struct OpaqueLSSharedFileListItemRef *LSSharedFileListItemRef;
typedef UInt32 LSSharedFileListResolutionFlags;
enum : LSSharedFileListResolutionFlags {
  kLSSharedFileListNoUserInteraction = 1 << 0,
  kLSSharedFileListDoNotMountVolumes = 1 << 1,
};
extern CFStringRef kLSSharedFileListGlobalLoginItems;
LSSharedFileListRef LSSharedFileListCreate(CFAllocatorRef allocator, CFStringRef type,
                                           CFTypeRef options);
CFArrayRef LSSharedFileListCopySnapshot(LSSharedFileListRef list, UInt32 *seed);
OSStatus LSSharedFileListItemRemove(LSSharedFileListRef list, LSSharedFileListItemRef item);
OSStatus LSSharedFileListItemResolve(LSSharedFileListItemRef item,
                                     LSSharedFileListResolutionFlags flags, CFURLRef *url,
                                     FSRef *ref);
CFStringRef LSSharedFileListItemCopyDisplayName(LSSharedFileListItemRef item);

// Metadata.
typedef struct __MDItem *MDItemRef;
MDItemRef MDItemCreate(CFAllocatorRef allocator, CFStringRef path);
CFTypeRef MDItemCopyAttribute(MDItemRef item, CFStringRef name);

} // extern "C"

#endif
