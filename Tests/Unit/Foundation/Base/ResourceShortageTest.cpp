// The errors that tell of a lack of this process's own resources.
#include "Foundation/Base/ResourceShortage.h"

#include <gtest/gtest.h>

namespace {

std::string reasonOf(const std::optional<NS::Error> &error) {
  try {
    NS::throwOnShortage(error);
  } catch (const NS::ResourceShortage &shortage) {
    return shortage.what();
  }
  return "";
}

TEST(ResourceShortage, isThrownForTheErrorsOfALack) {
  for (int errnum : {EMFILE, ENFILE, ENOMEM})
    EXPECT_THROW(NS::throwOnShortage(NS::fileError(errnum, "/a", NS::FileAccess::Reading)),
                 NS::ResourceShortage)
        << errnum;
}

TEST(ResourceShortage, isNotThrownForAnyOther) {
  EXPECT_NO_THROW(NS::throwOnShortage(std::nullopt));
  EXPECT_NO_THROW(NS::throwOnShortage(NS::Error(NS::CocoaErrorDomain, EMFILE)));
  for (int errnum : {ENOENT, EACCES, EIO, EFBIG})
    EXPECT_NO_THROW(NS::throwOnShortage(NS::fileError(errnum, "/a", NS::FileAccess::Reading)))
        << errnum;
}

TEST(ResourceShortage, readsTheErrnoValueBeneathAnError) {
  EXPECT_EQ(NS::errnoBeneath(NS::fileError(EIO, "/a", NS::FileAccess::Reading)), EIO);
  EXPECT_EQ(NS::errnoBeneath(NS::Error(NS::CocoaErrorDomain, EIO)), 0);
  NS::Error other(NS::CocoaErrorDomain, 256, {},
                  std::make_shared<NS::Error>(NS::CocoaErrorDomain, EIO));
  EXPECT_EQ(NS::errnoBeneath(other), 0) << "a code of another domain";
}

TEST(ResourceShortage, namesTheItemAndTheCause) {
  EXPECT_EQ(reasonOf(NS::fileError(EMFILE, "/a/b", NS::FileAccess::Reading)),
            "/a/b: Too many open files");
  EXPECT_EQ(reasonOf(NS::Error(NS::CocoaErrorDomain, 256, {},
                               std::make_shared<NS::Error>(NS::errorFromErrno(ENFILE)))),
            "Too many open files in system");
}

} // namespace
