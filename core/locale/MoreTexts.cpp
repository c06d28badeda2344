#include "core/locale/MoreTexts.h"

namespace core {

const std::array<const char*, kMoreTextCount> kMoreTextTable = {
    /* kMoreToolComesLater */ "This tool is not part of this version yet.",
};

}  // namespace core
