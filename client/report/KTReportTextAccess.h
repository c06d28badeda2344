// What a screen reader is told of a KTReportTextView: the line that the caret is in, as a text with
// a caret. The words of a whole report would have to be made for it. Main thread.
#pragma once

class KTReportTextView;

namespace KTReportTextAccess {

void Install();                          // before the first view; more than once does no harm
void TellText(KTReportTextView* view);   // there is another line now
void TellCaret(KTReportTextView* view);  // the caret moved

}  // namespace KTReportTextAccess
