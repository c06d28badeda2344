// KTLaterView: the page of a tool that is not built yet. It keeps the tool's settings as they are.
#pragma once

#include "client/uikit/KTToolView.h"

class KTLaterView : public KTToolView {
    Q_OBJECT
public:
    KTLaterView(const char* name, const QString& title, KTToolContext context, QWidget* parent);

    void GetPref(BMessage* settings) override { *settings = fSettings; }
    using KTToolView::SetPref;
    void SetPref(const BMessage& settings) override { fSettings = settings; }

private:
    BMessage fSettings;
};
