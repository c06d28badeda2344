// The English texts for every test of this program, whatever the environment speaks.
#include <gtest/gtest.h>

#include "core/locale/KTLocale.h"
#include "core/locale/MoreTexts.h"

namespace {

class Texts : public testing::Environment {
public:
    void SetUp() override {
        auto* locale = KTLocale::GetInstance();
        locale->SetDefaultText(core::kTextTable.data(), core::kTextCount, "English");
        locale->SetMoreText(core::kMoreTextTable.data(), core::kMoreTextCount);
    }
};
const testing::Environment* const kTexts = testing::AddGlobalTestEnvironment(new Texts);

}  // namespace
