#include "kit/support/Result.h"

#include <gtest/gtest.h>

using kit::Error;
using kit::ErrorKind;

TEST(Result, ErrnoBecomesAKindThatCallersCanTellApart) {
    const std::pair<int, ErrorKind> expected[] = {
        {ENOENT, ErrorKind::NotFound},
        {ENOTDIR, ErrorKind::NotFound},
        {EACCES, ErrorKind::Denied},
        {EPERM, ErrorKind::Denied},
        {ENOSPC, ErrorKind::Full},
        {EDQUOT, ErrorKind::Full},
        {EROFS, ErrorKind::ReadOnly},
        {EEXIST, ErrorKind::Exists},
        {ENOTSUP, ErrorKind::Unsupported},
        {ENAMETOOLONG, ErrorKind::TooLarge},
        {EINVAL, ErrorKind::Invalid},
        {EIO, ErrorKind::Io},
        {EPIPE, ErrorKind::Io},
    };
    for (const auto& [code, kind] : expected) {
        const Error error = Error::FromErrno(code, "/x");
        EXPECT_EQ(error.kind, kind) << code;
        EXPECT_EQ(error.code, code);
    }
}

TEST(Result, TextHasWhateverPartsThereAre) {
    EXPECT_EQ(Error::FromErrno(ENOENT, "/a", "open").Text(), "open: /a: No such file or directory");
    EXPECT_EQ(Error::FromErrno(ENOENT, "").Text(), "No such file or directory");
    EXPECT_EQ(Error::Make(ErrorKind::Damaged, "/a").Text(), "/a");
    EXPECT_EQ(Error::Make(ErrorKind::Invalid, "", "no name").Text(), "no name");
    EXPECT_EQ(Error{}.Text(), "");
}
