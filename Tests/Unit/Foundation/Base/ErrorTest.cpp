// Error values and what errno becomes.
#include "Foundation/Base/Error.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace {

using NS::FileAccess;

struct Row {
  int errnum;
  std::int64_t reading;
  std::int64_t writing;
};

TEST(FileError, translatesErrnoForReadingAndForWriting) {
  for (auto [errnum, reading, writing] :
       {Row{ENOENT, 260, 4}, Row{EPERM, 257, 513}, Row{EACCES, 257, 513},
        Row{ENAMETOOLONG, 258, 514}, Row{EINVAL, 258, 514}, Row{EEXIST, 256, 516},
        Row{ENOSPC, 256, 640}, Row{EDQUOT, 256, 640}, Row{EROFS, 257, 642},
        Row{ENOTSUP, 3328, 3328}, Row{ECANCELED, 3072, 3072}, Row{EBUSY, 256, 512},
        Row{EIO, 256, 512}, Row{ENOTEMPTY, 256, 512}}) {
    EXPECT_EQ(NS::fileError(errnum, "/x", FileAccess::Reading).code(), reading) << errnum;
    EXPECT_EQ(NS::fileError(errnum, "/x", FileAccess::Writing).code(), writing) << errnum;
  }
}

TEST(FileError, carriesThePathAndTheCause) {
  NS::Error error = NS::fileError(EACCES, "/x", FileAccess::Writing);
  EXPECT_EQ(error.domain(), "NSCocoaErrorDomain");
  EXPECT_EQ(std::get<std::string>(error.userInfo().at("NSFilePath")), "/x");
  ASSERT_TRUE(error.underlyingError());
  EXPECT_EQ(error.underlyingError()->domain(), "NSPOSIXErrorDomain");
  EXPECT_EQ(error.underlyingError()->code(), EACCES);
  EXPECT_EQ(error.underlyingError()->localizedDescription(), "Permission denied");
}

TEST(Error, describesItselfWithOrWithoutAText) {
  NS::Error bare("domain", 7);
  EXPECT_EQ(bare.localizedDescription(), "The operation couldn’t be completed. (domain error 7.)");
  EXPECT_EQ(bare.description(),
            "Error Domain=domain Code=7 \"" + bare.localizedDescription() + "\"");
  NS::Error told("domain", 7, {{"NSLocalizedDescription", std::string("Text.")}});
  EXPECT_EQ(told.localizedDescription(), "Text.");
  EXPECT_EQ(told.description(), "Error Domain=domain Code=7 \"Text.\" "
                                "UserInfo={NSLocalizedDescription=Text.}");
  NS::Error empty("domain", 7, {{"NSLocalizedDescription", std::string()}});
  EXPECT_EQ(empty.localizedDescription(), bare.localizedDescription());
}

TEST(Error, namesPathAndCauseInItsDescription) {
  std::string text = NS::fileError(ENOENT, "/x", FileAccess::Reading).description();
  EXPECT_NE(text.find("Code=260"), std::string::npos);
  EXPECT_NE(text.find("NSFilePath=/x"), std::string::npos);
  EXPECT_NE(text.find("NSPOSIXErrorDomain Code=2"), std::string::npos);
}

TEST(Error, namesACauseWithoutUserInfo) {
  NS::Error error("domain", 7, {}, std::make_shared<NS::Error>("cause", 1));
  EXPECT_EQ(error.description(), "Error Domain=domain Code=7 \"" + error.localizedDescription() +
                                     "\" UserInfo={NSUnderlyingError={" +
                                     error.underlyingError()->description() + "}}");
}

TEST(Error, separatesTheEntriesOfItsUserInfo) {
  NS::Error error("domain", 7, {{"Count", std::int64_t{2}}, {"NSFilePath", std::string("/x")}});
  EXPECT_TRUE(error.description().ends_with(" UserInfo={Count=2, NSFilePath=/x}"));
}

TEST(Error, isStoredOnlyWhereItIsWanted) {
  std::optional<NS::Error> slot;
  NS::storeError(nullptr, NS::Error("domain", 1));
  NS::storeError(&slot, NS::Error("domain", 2));
  EXPECT_EQ(slot->code(), 2);
}

} // namespace
