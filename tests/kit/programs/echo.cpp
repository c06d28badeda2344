// kit_echo RUN-FOLDER [SIGNATURE]: an application that does what its messages say.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "kit/app/BApplication.h"
#include "kit/app/SharedArea.h"

namespace {

class Echo : public BApplication {
public:
    Echo(const std::string& signature, Options options) : BApplication(signature, options) {}
    ~Echo() override { Stop(); }

    void MessageReceived(BMessage& message) override {
        switch (message.what) {
            case "echo"_code: {
                BMessage answer = message;
                answer.Add("from", message.SourceTeam());
                answer.Add("remote", message.IsSourceRemote());
                message.SendReply(std::move(answer));
                return;
            }
            case "keep"_code:
                fKept.push_back(std::move(message));
                return;
            case "free"_code:
                for (BMessage& kept : fKept)
                    kept.SendReply("late"_code);
                fKept.clear();
                return;
            case "note"_code:
                ++fNotes;
                return;
            case "cnt?"_code: {
                BMessage answer("cnt!"_code);
                answer.Add("notes", fNotes);
                answer.Add("refs", fRefs);
                message.SendReply(std::move(answer));
                return;
            }
            case "tell"_code: {  // says something to whoever "target" is, with the number along
                const auto target = message.Find<BMessenger>("target");
                BMessage told("told"_code);
                told.Add("n", message.Get<int32_t>("n", 0));
                if (target) target->SendMessage(std::move(told));
                return;
            }
            case "ask!"_code: {  // asks "target" and keeps the asker waiting for what that says
                const auto target = message.Find<BMessenger>("target");
                BMessage answer;
                if (target) target->SendMessage(BMessage("quiz"_code), &answer);
                message.SendReply(std::move(answer));
                return;
            }
            case "area"_code: {  // leaves a message in an area that is still there at the exit
                BMessage left("left"_code);
                left.Add("text", message.Get<std::string>("text", ""));
                auto area = kit::SharedArea::Create(left);
                BMessage answer("area"_code);
                if (area) answer.Add("area_id", (new kit::SharedArea(std::move(*area)))->Id());
                message.SendReply(std::move(answer));
                return;
            }
            case "exit"_code:
                ::_exit(0);
            case "halt"_code:
                ::raise(SIGSTOP);
                return;
            default:
                BApplication::MessageReceived(message);
        }
    }
    void RefsReceived(BMessage& message) override {
        fRefs += message.Count("refs", B_REF_TYPE);
        message.SendReply("okay"_code);
    }

private:
    std::vector<BMessage> fKept;
    int32_t fNotes = 0;
    int32_t fRefs = 0;
};

}  // namespace

int main(int count, char** arguments) {
    if (count < 2) return 2;
    BApplication::Options options;
    options.runDirectory = kit::RunDirectory(arguments[1]);
    Echo echo(count > 2 ? arguments[2] : "application/x-vnd.test-echo", options);
    if (echo.InitCheck() == BApplication::Start::AlreadyRunning) return 3;
    if (echo.InitCheck() != BApplication::Start::Ready) {
        std::fprintf(stderr, "%s\n", echo.Problem().c_str());
        return 1;
    }
    echo.Loop();
    return 0;
}
