#include "client/mainwindow/KTLaterView.h"

#include <QBoxLayout>
#include <QLabel>

#include "client/uikit/KTControl.h"

KTLaterView::KTLaterView(const char* name, const QString& title, KTToolContext context,
                         QWidget* parent)
    : KTToolView(name, std::move(context), parent) {
    auto* heading = new QLabel(title, this);
    QFont font = heading->font();
    font.setPointSizeF(font.pointSizeF() * 1.4);
    heading->setFont(font);
    auto* words = new QLabel(KTControl::Text(core::kMoreToolComesLater), this);
    words->setObjectName("str_later");
    for (QLabel* label : {heading, words}) {
        label->setTextFormat(Qt::PlainText);
        label->setAlignment(Qt::AlignHCenter);
        label->setWordWrap(true);
    }
    auto* layout = new QVBoxLayout(this);
    layout->addStretch(1);
    layout->addWidget(heading);
    layout->addWidget(words);
    layout->addStretch(2);
}
