// Messages between two real processes.
#include "tests/kit/KitTest.h"

namespace {

class Processes : public testing::Test {
protected:
    TemporaryFolder folder;
    TestApplication application{folder.Path()};
};

TEST_F(Processes, AQuestionIsAnsweredAndTheSenderIsKnown) {
    ASSERT_EQ(application.InitCheck(), BApplication::Start::Ready) << application.Problem();
    EchoProcess echo(folder.Path());
    BMessage question("echo"_code);
    question.Add("text", "hello");
    BMessage answer;
    ASSERT_EQ(echo.Messenger().SendMessage(question, &answer, kLong), BSendResult::Ok);
    EXPECT_EQ(answer.what, "echo"_code);
    EXPECT_EQ(answer.FindString("text"), "hello");
    EXPECT_EQ(answer.Find<int32_t>("from"), ::getpid());
    EXPECT_EQ(answer.Find<bool>("remote"), true);
}

}  // namespace
