// KTToolView: a tool of the main window: a widget and a handler that keeps its whole state in one
// job message and a registry of the secondary windows it has open.
#pragma once

#include <QPointer>
#include <QWidget>
#include <map>
#include <string>

#include "kit/app/BHandler.h"

class ServerLink;
class Preferences;

// What a tool view is given by the window that shows it. All outlive the view.
struct KTToolContext {
    ServerLink* server = nullptr;
    Preferences* preferences = nullptr;
    std::string programFolder;  // where the program lies
    std::string userFolder;     // where settings and "jobsettings" are written (often the same)
};

class KTToolView : public QWidget, public BHandler {
    Q_OBJECT
public:
    KTToolView(const char* name, KTToolContext context, QWidget* parent);
    ~KTToolView() override;  // closes its secondary windows

    // The tool's settings group, for the settings store.
    virtual void GetPref(BMessage* settings) = 0;
    virtual void SetPref(const BMessage& settings) = 0;
    // Opens a job or selection file.
    virtual void SetPref(const entry_ref& file) { (void)file; }
    // Whether "Job Settings" and "Selection" of the menu bar mean something here.
    virtual bool HasJob() const { return false; }

protected:
    const KTToolContext& Context() const { return fContext; }

    // The registry: the open window of a key ("win_start"), null when there is none; a closed one
    // forgets itself.
    QWidget* OpenWindow(const std::string& key) const;
    void Remember(const std::string& key, QWidget* window);
    void Forget(const std::string& key);
    // True when a window of that key is open; it is raised then.
    bool RaiseIfOpen(const std::string& key);

private:
    KTToolContext fContext;
    std::map<std::string, QPointer<QWidget>> fWindows;
};
