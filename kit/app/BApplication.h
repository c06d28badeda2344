// BApplication: the looper with a signature. It takes the signature's lock, opens the team's socket
// and starts the connection thread; from then on messengers reach it from other processes of the
// user. One per process (be_app).
#pragma once

#include "kit/app/BLooper.h"
#include "kit/app/RunDirectory.h"
#include "kit/app/SignatureLock.h"

namespace kit {
class Link;
}

class BApplication : public BLooper {
public:
    struct Options {
        kit::RunDirectory runDirectory = kit::RunDirectory::Default();
        // Several copies may run at once; the signature's lock is not taken (command line tools).
        bool multiple = false;
    };
    enum class Start {
        Ready,
        AlreadyRunning,  // another process has the signature: `OtherTeam`; send it what you have,
                         // end
        Failed,          // `Problem` says why
    };

    explicit BApplication(std::string signature);
    BApplication(std::string signature, Options options);
    ~BApplication() override;

    Start InitCheck() const { return fStart; }
    int32_t OtherTeam() const { return fOtherTeam; }
    const std::string& Problem() const { return fProblem; }

    const std::string& Signature() const { return fSignature; }
    int32_t Team() const;  // the process id
    const kit::RunDirectory& Directory() const { return fOptions.runDirectory; }
    // The folder that holds the program file, from /proc/self/exe; no trailing slash.
    static std::string ProgramFolder();

    // Messages for token -1 arrive at the application itself. It handles 'REFS' (RefsReceived) and
    // answers 'PGET' nobody understood with 'MNOT'; the rest goes to BLooper.
    void MessageReceived(BMessage& message) override;
    virtual void RefsReceived(BMessage& message);  // "refs": entry_ref, repeated
    // Every connection to another team has ended, or its process is gone. Looper's thread.
    virtual void TeamGone(int32_t team);

protected:
    // Ends all connections, after what still waits has been sent; open questions end without an
    // answer. For the destructor of an application whose answers need what it owns.
    void Disconnect();

private:
    Start Prepare();

    std::string fSignature;
    Options fOptions;
    Start fStart = Start::Failed;
    int32_t fOtherTeam = 0;
    std::string fProblem;
    kit::SignatureLock fLock;
    std::shared_ptr<kit::Link> fLink;
};

extern BApplication* be_app;  // null before and after
