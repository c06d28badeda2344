#include "core/locale/MoreTexts.h"

namespace core {

const std::array<const char*, kMoreTextCount> kMoreTextTable = {
    /* kMoreToolComesLater */ "This tool is not part of this version yet.",
    /* kMoreLookingForVolumes */ "Looking for volumes…",
    /* kMoreNoVolumes */ "No volumes were found.",
    /* kMoreBeingRead */ "being read",
};

}  // namespace core
