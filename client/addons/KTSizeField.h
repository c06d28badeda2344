// KTSizeField: a size in bytes, chosen from proposals or typed as a number with a unit.
#pragma once

#include <QWidget>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class QComboBox;
class QDoubleSpinBox;

class KTSizeField : public QWidget {
    Q_OBJECT
public:
    using Proposal = std::pair<QString, int64_t>;
    // The controls are named "mnu_KEY", "num_KEY" and "unit_KEY"; `spoken` is the field's label.
    KTSizeField(const std::string& key, const QString& spoken, std::vector<Proposal> proposals,
                int64_t value, QWidget* parent = nullptr);

    int64_t Value() const;  // bytes

private:
    void ProposalChosen();
    void ShowValue(int64_t value);

    std::vector<Proposal> fProposals;
    QComboBox* fProposal;  // null without proposals
    QDoubleSpinBox* fNumber;
    QComboBox* fUnit;
};
