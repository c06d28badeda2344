#include "kit/support/Result.h"

#include <system_error>

namespace kit {

namespace {

ErrorKind KindOf(int code) {
    switch (code) {
        case 0:
            return ErrorKind::None;
        case ENOENT:
        case ENOTDIR:
        case ENODEV:
        case ENXIO:
        case ESRCH:
        case ENODATA:
            return ErrorKind::NotFound;
        case EACCES:
        case EPERM:
            return ErrorKind::Denied;
        case ENOSPC:
        case EDQUOT:
        case EFBIG:
            return ErrorKind::Full;
        case EROFS:
            return ErrorKind::ReadOnly;
        case EEXIST:
        case ENOTEMPTY:
            return ErrorKind::Exists;
        case ENOSYS:
        case EOPNOTSUPP:
            return ErrorKind::Unsupported;
        case ECANCELED:
            return ErrorKind::Aborted;
        case ENAMETOOLONG:
        case E2BIG:
        case ERANGE:
        case EMSGSIZE:
        case EOVERFLOW:
            return ErrorKind::TooLarge;
        case EINVAL:
        case EISDIR:
        case ELOOP:
        case EBADF:
            return ErrorKind::Invalid;
        case EBADMSG:
        case EILSEQ:
            return ErrorKind::Damaged;
        default:
            return ErrorKind::Io;
    }
}

}  // namespace

Error Error::FromErrno(int code, std::string path, std::string detail) {
    return {KindOf(code), code, std::move(path), std::move(detail)};
}

std::string Error::Text() const {
    std::string text = detail;
    const auto append = [&text](const std::string& part) {
        if (part.empty()) return;
        if (!text.empty()) text += ": ";
        text += part;
    };
    append(path);
    if (code != 0) append(std::generic_category().message(code));
    return text;
}

}  // namespace kit
