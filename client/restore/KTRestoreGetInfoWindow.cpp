#include "client/restore/KTRestoreGetInfoWindow.h"

#include <QBoxLayout>
#include <QDialogButtonBox>
#include <QPushButton>
#include <QScrollBar>
#include <QTextEdit>
#include <QTextTable>

#include "client/uikit/KTControl.h"
#include "client/uikit/KTElidedLabel.h"
#include "client/uikit/KTGeometry.h"
#include "core/locale/MoreTexts.h"
#include "core/protocol/Texts.h"

namespace {

constexpr char kLabel[] = "RESINFOSPALTE1";
constexpr char kValue[] = "RESINFOSPALTE2";
constexpr int kWidth = 460;
constexpr int kMostRows = 24;

// A text edit that can be read only, as wide as the window, with one table in it: all of it can be
// selected at once, and a long path breaks wherever it must.
class InfoTable : public QTextEdit {
public:
    explicit InfoTable(const BMessage& info) {
        KTControl::Name(this, "txt_info", KTControl::Text(core::text::kGetInfo));
        setReadOnly(true);
        setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
        setTabChangesFocus(true);
        setFrameShape(NoFrame);
        setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
        viewport()->setBackgroundRole(QPalette::Window);
        setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
        const int rows = info.Count(kLabel);
        if (rows > 0) Fill(info, rows);
    }
    QSize sizeHint() const override {
        // High enough beside a scroll bar, too: once there it would stay for want of the line that
        // it costs itself.
        const std::unique_ptr<QTextDocument> copy(document()->clone());
        copy->setTextWidth(kWidth - verticalScrollBar()->sizeHint().width());
        const int most = kMostRows * fontMetrics().lineSpacing();
        return {kWidth, std::min(qCeil(copy->size().height()), most)};
    }

private:
    void Fill(const BMessage& info, int rows) {
        QTextTableFormat format;
        format.setBorder(0);
        format.setCellPadding(3);
        format.setCellSpacing(0);
        format.setWidth(QTextLength(QTextLength::PercentageLength, 100));
        // The first column takes what its labels need.
        int label = 0;
        QFont bold(font());
        bold.setBold(true);
        for (int i = 0; i < rows; ++i)
            label = std::max(label, QFontMetrics(bold).horizontalAdvance(
                                        KTControl::Shown(info.Get(kLabel, std::string(), i))));
        format.setColumnWidthConstraints(
            {QTextLength(QTextLength::FixedLength, label + 4 * format.cellPadding()),
             QTextLength()});
        QTextCursor cursor(document());
        QTextTable* table = cursor.insertTable(rows, 2, format);
        QTextCharFormat heavy;
        heavy.setFontWeight(QFont::Bold);
        for (int i = 0; i < rows; ++i) {
            table->cellAt(i, 0).firstCursorPosition().insertText(
                KTControl::Shown(info.Get(kLabel, std::string(), i)), heavy);
            table->cellAt(i, 1).firstCursorPosition().insertText(
                KTControl::Shown(info.Get(kValue, std::string(), i)), QTextCharFormat());
        }
        moveCursor(QTextCursor::Start);
    }
};

}  // namespace

KTRestoreGetInfoWindow::KTRestoreGetInfoWindow(const BMessage& info, QWidget* parent)
    : QDialog(parent ? parent->window() : nullptr) {
    setAttribute(Qt::WA_DeleteOnClose);
    setWindowTitle(KTControl::Text(core::text::kGetInfo));

    auto* heading = new KTElidedLabel(Qt::ElideMiddle);
    KTControl::Name(heading, "str_heading");
    heading->setText(KTControl::Text(core::kMoreInfoHeading)
                         .replace("%s", KTControl::Shown(info.Get(kValue, std::string()))));
    QFont large(heading->font());
    large.setBold(true);
    large.setPointSizeF(large.pointSizeF() * 1.2);
    heading->setFont(large);

    auto* buttons = new QDialogButtonBox;
    QPushButton* ok =
        buttons->addButton(KTControl::LabelText(core::text::kOk), QDialogButtonBox::AcceptRole);
    KTControl::Name(ok, "btn_ok");
    ok->setDefault(true);
    connect(ok, &QPushButton::clicked, this, &QDialog::close);

    auto* layout = new QVBoxLayout(this);
    layout->addWidget(heading);
    layout->addWidget(new InfoTable(info), 1);
    layout->addWidget(buttons);
    ok->setFocus();
}

void KTRestoreGetInfoWindow::showEvent(QShowEvent* event) {
    if (!std::exchange(fPlaced, true)) {
        adjustSize();
        KTGeometry::PlaceOver(this, parentWidget());
    }
    QDialog::showEvent(event);
}
