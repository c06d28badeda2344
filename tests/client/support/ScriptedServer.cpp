// A server that does what a test says: it notes what it is sent, answers, keeps answers back,
// speaks to the client, dies. Codes that begin with "t" and have capitals behind are the test's
// orders to it.
#include <unistd.h>

#include <mutex>
#include <vector>

#include "core/protocol/Codes.h"
#include "kit/app/BApplication.h"

namespace {

class ScriptedServer : public BApplication {
public:
    ScriptedServer() : BApplication(core::kServerSignature) {}

    void MessageReceived(BMessage& message) override {
        switch (message.what) {
            case "tSEE"_code:
                Tell(message);
                break;
            case "tSAY"_code:
                Sender(message).SendMessage(message.Get("message", BMessage()));
                break;
            case "tASK"_code:
                AskBack(std::move(message));
                break;
            case "tHLD"_code:
                fHolding = true;
                break;
            case "tFRE"_code:
                Free();
                break;
            case "tDIE"_code:
                ::_exit(1);
            default:
                Note(message);
        }
    }

private:
    static BMessenger Sender(const BMessage& message) {
        return {message.SourceTeam(), BMessenger::kApplication};
    }
    void Note(BMessage& message) {
        BMessage copy(message);
        fSeen.push_back(copy);
        if (!message.IsSourceWaiting()) return;
        if (fHolding)
            fHeld.push_back(std::move(message));
        else
            Answer(message);
    }
    static void Answer(BMessage& message) {
        BMessage answer("answ"_code);
        answer.Add("to", CodeText(message.what));
        message.SendReply(std::move(answer));
    }
    void Tell(BMessage& message) {
        BMessage seen("seen"_code);
        for (const BMessage& one : fSeen)
            seen.Add("message", one);
        message.SendReply(std::move(seen));
    }
    void Free() {
        fHolding = false;
        for (BMessage& message : fHeld)
            Answer(message);
        fHeld.clear();
    }
    static void AskBack(BMessage&& message) {
        const BMessage question = message.Get("message", BMessage());
        const BMessenger client = Sender(message);
        auto asker = std::make_shared<BMessage>(std::move(message));
        client.Ask(question, [asker](BSendResult result, BMessage answer) {
            BMessage report("rprt"_code);
            report.Add("result", static_cast<int32_t>(result));
            report.Add("answer", answer);
            asker->SendReply(std::move(report));
        });
    }

    std::vector<BMessage> fSeen, fHeld;
    bool fHolding = false;
};

}  // namespace

int main() {
    ScriptedServer server;
    if (server.InitCheck() != BApplication::Start::Ready) return 1;
    server.Loop();
}
