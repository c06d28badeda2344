#include "client/addons/KTSizeField.h"

#include <QBoxLayout>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <cmath>

#include "client/uikit/KTControl.h"
#include "core/locale/MoreTexts.h"

namespace {

constexpr int32_t kUnitTexts[] = {core::kMoreUnitBytes, core::kMoreUnitKilobytes,
                                  core::kMoreUnitMegabytes, core::kMoreUnitGigabytes,
                                  core::kMoreUnitTerabytes};
constexpr int kUnits = 5;
constexpr int kUnitBits = 10;                // from one unit to the next
constexpr double kMost = 9007199254740992.;  // whole numbers up to here are exact in a double
constexpr int kDefaultUnit = 2;              // megabytes

double UnitSize(int unit) {
    return std::ldexp(1.0, unit * kUnitBits);
}

// "700", not "700.00".
class NumberField : public QDoubleSpinBox {
protected:
    QString textFromValue(double value) const override {
        QString text = QDoubleSpinBox::textFromValue(value);
        const QString point = locale().decimalPoint();
        if (!text.contains(point)) return text;
        while (text.endsWith('0'))
            text.chop(1);
        if (text.endsWith(point)) text.chop(point.size());
        return text;
    }
};

}  // namespace

KTSizeField::KTSizeField(const std::string& key, const QString& spoken,
                         std::vector<Proposal> proposals, int64_t value, QWidget* parent)
    : QWidget(parent), fProposals(std::move(proposals)), fProposal(nullptr) {
    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    if (!fProposals.empty()) {
        fProposal = new QComboBox;
        KTControl::Name(fProposal, ("mnu_" + key).c_str(), spoken);
        for (const auto& [label, bytes] : fProposals)
            fProposal->addItem(label);
        fProposal->addItem(KTControl::Text(core::kMoreOtherSize));
        layout->addWidget(fProposal, 1);
        connect(fProposal, &QComboBox::currentIndexChanged, this, [this] { ProposalChosen(); });
    }
    fNumber = new NumberField;
    KTControl::Name(fNumber, ("num_" + key).c_str(), spoken);
    fNumber->setGroupSeparatorShown(false);
    layout->addWidget(fNumber, 1);
    fUnit = new QComboBox;
    KTControl::Name(fUnit, ("unit_" + key).c_str(), KTControl::Text(core::kMoreUnit));
    for (const int32_t text : kUnitTexts)
        fUnit->addItem(KTControl::Text(text));
    layout->addWidget(fUnit);
    connect(fUnit, &QComboBox::currentIndexChanged, this,
            [this](int unit) { fNumber->setDecimals(unit == 0 ? 0 : 2); });
    fNumber->setRange(0, kMost);
    ShowValue(value);
    if (fProposal) {
        const auto known =
            std::find_if(fProposals.begin(), fProposals.end(),
                         [value](const Proposal& proposal) { return proposal.second == value; });
        fProposal->setCurrentIndex(static_cast<int>(known - fProposals.begin()));
        ProposalChosen();
    }
}

int64_t KTSizeField::Value() const {
    if (fProposal && fProposal->currentIndex() < static_cast<int>(fProposals.size()))
        return fProposals[static_cast<size_t>(fProposal->currentIndex())].second;
    const double bytes = fNumber->value() * UnitSize(fUnit->currentIndex());
    return static_cast<int64_t>(std::llround(std::min(bytes, kMost)));
}

void KTSizeField::ProposalChosen() {
    const bool other = fProposal->currentIndex() == static_cast<int>(fProposals.size());
    if (!other) ShowValue(Value());
    fNumber->setVisible(other);
    fUnit->setVisible(other);
}

void KTSizeField::ShowValue(int64_t value) {
    value = std::max<int64_t>(value, 0);
    // The largest unit that holds the value as a whole number, so that showing it changes nothing.
    int unit = value == 0 ? kDefaultUnit : kUnits - 1;
    while (unit > 0 && (value & ((int64_t{1} << (unit * kUnitBits)) - 1)) != 0)
        --unit;
    fUnit->setCurrentIndex(unit);
    fNumber->setDecimals(unit == 0 ? 0 : 2);
    fNumber->setValue(static_cast<double>(value) / UnitSize(unit));
}
