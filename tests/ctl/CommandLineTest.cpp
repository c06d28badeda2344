// backupctl as a process, with a server that plays scripts.
#include <fcntl.h>
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "tests/support/MadeCatalogue.h"
#include "tests/support/ServerHouse.h"

namespace {

using nlohmann::json;
using tests::Eventually;
using tests::ServerHouse;

class CommandLineTest : public testing::Test {
protected:
    CommandLineTest() : house(VELMORA_FAKE_SERVER) {
        const std::string built = VELMORA_PROGRAM_DIR;
        std::filesystem::copy_file(built + "/backupctl", house.Program() + "/backupctl");
        std::filesystem::create_directory_symlink(built + "/lib", house.Program() + "/lib");
        std::filesystem::create_directory_symlink(built + "/locale", house.Program() + "/locale");
        source = house.Root() + "/source";
        std::filesystem::create_directory(source);
    }
    ~CommandLineTest() override {
        // The server that backupctl launched is not ours to wait for, but to end.
        for (const auto& entry : std::filesystem::directory_iterator(house.Root() + "/r")) {
            std::ifstream lock(entry.path() / "application_x-vnd.velmoraware-backupserver.lock");
            pid_t team = 0;
            if (!(lock >> team) || team <= 1) continue;
            std::error_code gone;
            const auto program =
                std::filesystem::read_symlink("/proc/" + std::to_string(team) + "/exe", gone);
            if (program.string().starts_with(house.Root())) ::kill(team, SIGKILL);
        }
    }

    pid_t Start(const std::vector<std::string>& arguments, const std::string& file = "/output") {
        const kit::UniqueFd output(
            ::open((house.Root() + file).c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_APPEND, 0600));
        return house.Spawn(house.Program() + "/backupctl", arguments, output.Get());
    }
    std::string Output(const std::string& file = "/output") const {
        std::ifstream stream(house.Root() + file);
        return {std::istreambuf_iterator<char>(stream), {}};
    }
    bool Says(const std::string& words) const { return Output().find(words) != std::string::npos; }
    int Run(const std::vector<std::string>& arguments) {
        return ServerHouse::WaitForEnd(Start(arguments));
    }
    json RunJson(std::vector<std::string> arguments) {
        arguments.push_back("--json");
        EXPECT_EQ(Run(arguments), 0) << Output();
        return json::parse(Output());
    }
    int Backup(const std::string& script, std::vector<std::string> more = {}) {
        more.insert(more.begin(), {"backup", source, "--to", house.Root() + "/target", "--title",
                                   "script:" + script});
        return Run(more);
    }

    ServerHouse house;
    std::string source;
};

TEST_F(CommandLineTest, LaunchesTheServerAndTellsTheEndByItsStatus) {
    EXPECT_EQ(Backup("line 1 A heading;line 6 a file;line 4 Data"), 0) << Output();
    EXPECT_TRUE(Says("A heading\n")) << Output();
    EXPECT_FALSE(Says("a file")) << Output();
    EXPECT_EQ(Backup("line 6 a file", {"--verbose"}), 0);
    EXPECT_TRUE(Says("a file\n")) << Output();
    EXPECT_EQ(Backup("line 3 ERROR: all is lost;end 2"), 1);  // no backup came of it
    EXPECT_TRUE(Says("ERROR: all is lost\n")) << Output();
    EXPECT_EQ(Backup("end 1"), 1);
    EXPECT_EQ(Backup("throw"), 1);
    EXPECT_EQ(Backup("crash"), 1);
    EXPECT_TRUE(Says("server ended")) << Output();
    const json reports = RunJson({"reports"});
    EXPECT_EQ(reports.size(), 6u);
    EXPECT_EQ(reports[0]["title"], "script:line 1 A heading;line 6 a file;line 4 Data");
    const json lines = RunJson({"report", std::to_string(reports[0]["report_id"].get<int>())});
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[2]["linetype"], 4);
    EXPECT_EQ(lines[2]["text"], "Data");
    EXPECT_EQ(Run({"report", "999"}), 1);
}

TEST_F(CommandLineTest, WrongUse) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {},
             {"nonsense"},
             {"backup"},
             {"backup", source},
             {"backup", "--to", "/x"},
             {"backup", source, "--incremental", "none", "--to", "/x"},
             {"backup", source, "--to", "/x", "--compress", "zstd:77"},
             {"backup", house.Root() + "/missing", "--to", "/x"},
             {"pause"},
             {"pause", "abc"},
             {"pause", "-1"},
             {"report", "x"},
             {"restore", "1"},
             {"restore", "1", "/", "--overwrite", "perhaps"},
             {"verify", "1", "--password", "secret"},
             {"compare"},
             {"compare", "1", "--only", "size,colour"},
             {"browse", "1", "--password-fd", "-1"},
             {"find", ""},
             {"find", "folder/file"},
             {"find", "x", "--max", "0"},
             {"delete", "1"}}) {
        EXPECT_EQ(Run(arguments), 2) << Output();
        EXPECT_FALSE(Output().empty());
    }
    EXPECT_FALSE(std::filesystem::exists(house.RunDirectory() +
                                         "/application_x-vnd.velmoraware-backupserver.lock"));
    EXPECT_EQ(Run({"--help"}), 0);
    EXPECT_TRUE(Says("backupctl backup ~/Documents --to"));
    EXPECT_EQ(Run({"backup", "--help"}), 0);
}

TEST_F(CommandLineTest, QueueFromHoldToEnd) {
    EXPECT_EQ(Run({"jobs"}), 0);
    EXPECT_EQ(Output(), "No jobs.\n");
    const json held = RunJson({"backup", source, "--to", "/target", "--hold", "--title",
                               "script:until " + house.Root() + "/never"});
    const std::string id = std::to_string(held["job_id"].get<int>());
    json jobs = RunJson({"jobs"});
    ASSERT_EQ(jobs.size(), 1u);
    EXPECT_EQ(jobs[0]["status"], "Pause");
    const std::string number = jobs[0]["number"];
    EXPECT_EQ(number.size(), 8u);
    EXPECT_EQ(Run({"pause", id}), 1);  // it is already
    EXPECT_EQ(RunJson({"continue", number})["status"], "Running");
    EXPECT_EQ(RunJson({"pause", id})["status"], "Pause");
    EXPECT_EQ(RunJson({"continue", id})["status"], "Running");
    EXPECT_EQ(RunJson({"abort", id})["status"], "Removed");
    EXPECT_EQ(RunJson({"jobs"}).size(), 0u);
    EXPECT_EQ(Run({"abort", id}), 1);
    EXPECT_TRUE(Says("There is no job"));
}

TEST_F(CommandLineTest, SchedulesAndQueue) {
    house.zone = "UTC0";
    ASSERT_EQ(Backup("progress 1 2", {"--hold"}), 0);
    json made = RunJson({"schedule", "1", "--at", "04:00", "--on", "2099-01-31", "--every",
                         "1month", "--not-on", "sat,sun"});
    // 2099-01-31 is a Saturday: the server moves it to the Monday.
    EXPECT_EQ(made["months"], 1);
    EXPECT_EQ(made["not_on"], json::array({"sunday", "saturday"}));
    EXPECT_EQ(made["next"], 4'073'673'600 + 4 * 3600);
    EXPECT_EQ(RunJson({"schedule", "1"}), made);
    EXPECT_EQ(Run({"schedule", "1", "--at", "25:00"}), 2);
    EXPECT_EQ(Run({"schedule", "1", "--none", "--at", "12:00"}), 2);
    EXPECT_EQ(Run({"schedule", "7"}), 1);

    EXPECT_EQ(Run({"queue", "start", "1"}), 1);  // it is on hold
    EXPECT_EQ(RunJson({"queue", "continue", "1"})["status"], "Waiting");
    ASSERT_EQ(Run({"queue"}), 0);
    EXPECT_TRUE(Says("(2099-02-02, 04:00); every month, not on Sunday, Saturday")) << Output();
    EXPECT_EQ(RunJson({"queue", "hold", "1"})["status"], "Pause");
    EXPECT_EQ(Run({"queue", "hold"}), 2);
    EXPECT_EQ(Run({"queue", "burn", "1"}), 2);
    Run({"queue", "continue", "1"});
    // Started by hand it runs at once; its time stays, under the next number.
    ASSERT_EQ(Run({"queue", "start", "1"}), 0);
    ASSERT_TRUE(Eventually([&] { return RunJson({"queue"})[0]["job_id"] == 2; }));
    EXPECT_EQ(RunJson({"queue"})[0]["schedule"]["next"], made["next"]);
    EXPECT_EQ(RunJson({"queue", "delete", "2"})["status"], "Removed");
    EXPECT_EQ(RunJson({"queue"}), json::array());
}

TEST_F(CommandLineTest, ABackupForLater) {
    house.zone = "UTC0";
    const std::string never = house.Root() + "/never";
    const auto backup = [&](const std::string& script, std::vector<std::string> more) {
        more.insert(more.begin(),
                    {"backup", source, "--to", "/target", "--title", "script:" + script});
        return more;
    };
    // It says when it will run, and does not wait for that.
    const json made = RunJson(backup("progress 1 2", {"--at", "18:05", "--on", "2099-03-02",
                                                      "--every", "2days", "--not-on", "sun"}));
    EXPECT_EQ(made["next"], 4'076'157'900);
    EXPECT_EQ(made["days"], 2);
    EXPECT_EQ(made["not_on"], json::array({"sunday"}));
    EXPECT_EQ(RunJson({"schedule", "1"}), made);
    EXPECT_EQ(RunJson({"jobs"})[0]["status"], "Waiting");
    ASSERT_EQ(Run(backup("progress 1 2", {"--hold", "--on", "2099-03-02", "--at", "0:00"})), 0);
    EXPECT_TRUE(Says("backupctl continue 00000002")) << Output();
    EXPECT_TRUE(Says("(2099-03-02, 00:00); once")) << Output();
    EXPECT_EQ(RunJson({"jobs"})[1]["status"], "Pause");
    // From now on: it runs already, and its schedule is told all the same.
    EXPECT_EQ(RunJson(backup("until " + never, {"--every", "1day"}))["days"], 1);
    EXPECT_EQ(RunJson({"jobs"})[2]["status"], "Running");
    EXPECT_EQ(Run(backup("progress 1 2", {"--every", "sometimes"})), 2);
    EXPECT_EQ(Run(backup("progress 1 2", {"--at", "24:00"})), 2);
    EXPECT_EQ(RunJson({"jobs"}).size(), 3u);
}

TEST_F(CommandLineTest, RunningJobsAreWatched) {
    const std::string go = house.Root() + "/go";
    ASSERT_EQ(Backup("line 4 Data;line 3 trouble;until " + go, {"--hold"}), 0);
    const auto has = [&](const char* file, const char* words) {
        return Eventually([&] { return Output(file).find(words) != std::string::npos; });
    };
    const pid_t watch = Start({"watch", "--json"}, "/watched");
    ASSERT_EQ(Run({"continue", "1"}), 0);
    ASSERT_TRUE(has("/watched", "trouble")) << Output("/watched");
    const pid_t follow = Start({"report", "1", "--follow"}, "/followed");
    ASSERT_TRUE(has("/followed", "00000001  Data")) << Output("/followed");
    std::ofstream(go) << "x";
    EXPECT_EQ(ServerHouse::WaitForEnd(follow), 0);
    EXPECT_TRUE(has("/followed", "trouble")) << Output("/followed");  // of its report
    EXPECT_TRUE(has("/watched", "\"end\":0")) << Output("/watched");
    ::kill(watch, SIGINT);
    EXPECT_EQ(ServerHouse::WaitForEnd(watch), 0);
    std::istringstream lines(Output("/watched"));
    for (std::string line; std::getline(lines, line);)
        EXPECT_EQ(json::parse(line)["job_id"], 1) << line;
}

TEST_F(CommandLineTest, InterruptAbortsTheJobAndWaitsForItsEnd) {
    const pid_t process = Start({"backup", source, "--to", "/target", "--title",
                                 "script:line 4 Data;until " + house.Root() + "/never"});
    ASSERT_TRUE(Eventually([&] { return Says("Data"); })) << Output();
    ::kill(process, SIGINT);
    EXPECT_EQ(ServerHouse::WaitForEnd(process), 1);
    EXPECT_TRUE(Says(": aborted")) << Output();
    EXPECT_EQ(RunJson({"jobs"}).size(), 0u);
}

TEST_F(CommandLineTest, BackupsAreListedBrowsedFoundAndDeleted) {
    const std::string odd = "line\nfeed \xff";
    const auto papers = tests::AddCatalogue(
        house.Data(), {1, core::JobType::Full, 0, "Papers", {"Budget 2026", odd, "letter"}});
    const auto more = tests::AddCatalogue(
        house.Data(), {2, core::JobType::Incremental, 1, "Papers", {"budget.old"}, {papers}});
    const json list = RunJson({"list"});
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0]["name"], papers);
    EXPECT_EQ(list[1]["type"], "Incremental Backup");
    EXPECT_EQ(list[1]["base_id"], 1);

    const json tree = RunJson({"browse", papers, "Data/folder"});
    ASSERT_EQ(tree.size(), 3u);
    EXPECT_EQ(tree[0]["path"], "/Data/folder/Budget 2026");
    EXPECT_EQ(tree[0]["type"], "file");
    EXPECT_EQ(tree[0]["size"], 11);
    EXPECT_EQ(RunJson({"browse", "1"})[0]["type"], "volume");
    EXPECT_EQ(RunJson({"browse", "00000001", "/Data/folder/letter"}).size(), 1u);
    EXPECT_EQ(Run({"browse", "1", "/Data/folder"}), 0);
    EXPECT_TRUE(Says("line\\x0afeed \\xff\n")) << Output();
    EXPECT_EQ(Run({"browse", "1", "/Data/missing"}), 1);
    EXPECT_TRUE(Says("'/Data/missing' is not in the backup")) << Output();
    EXPECT_EQ(Run({"browse", "Papers"}), 1);
    EXPECT_TRUE(Says("means several backups")) << Output();
    EXPECT_TRUE(Says(more)) << Output();

    json found = RunJson({"find", "BUDGET"});
    EXPECT_FALSE(found["more"]);
    ASSERT_EQ(found["found"].size(), 2u);
    EXPECT_EQ(found["found"][0]["backup"], more);  // the newest first
    EXPECT_EQ(found["found"][1]["path"], "/Data/folder/Budget 2026");
    found = RunJson({"find", "e", "--max", "1"});
    EXPECT_TRUE(found["more"]);
    EXPECT_EQ(found["found"].size(), 1u);

    EXPECT_EQ(Run({"delete", "1", "--yes"}), 1);
    EXPECT_TRUE(Says("is built on it")) << Output();
    EXPECT_EQ(Run({"delete", "1", "2", papers, "--yes", "--with-data"}), 1);  // the data is away
    EXPECT_EQ(RunJson({"list"}).size(), 2u);
    EXPECT_EQ(RunJson({"delete", "1", "2", papers, "--yes"})["deleted"].size(), 2u);
    EXPECT_EQ(Run({"list"}), 0);
    EXPECT_EQ(Output(), "There are no backups yet.\n");
    EXPECT_EQ(Run({"verify", papers}), 1);
    EXPECT_TRUE(Says("There is no backup")) << Output();
}

TEST_F(CommandLineTest, SpeaksTheLanguageOfTheEnvironmentButNotToPrograms) {
    tests::AddCatalogue(house.Data(), {1, core::JobType::Full, 0, "Papiere", {"a"}});
    house.language = "de_DE.UTF-8";
    EXPECT_EQ(Run({"jobs"}), 0);
    EXPECT_EQ(Output(), "Keine Aufträge.\n");
    EXPECT_EQ(Run({"list"}), 0);
    EXPECT_TRUE(Says("Vollsicherung")) << Output();
    EXPECT_EQ(RunJson({"list"})[0]["type"], "Full Backup");
    EXPECT_EQ(RunJson({"backup", source, "--to", "/target", "--title", "script:"})["status"],
              "good");
    EXPECT_EQ(Run({"restore", "--help"}), 0);
    EXPECT_TRUE(Says("Aufruf: backupctl restore [Optionen]")) << Output();
    EXPECT_FALSE(Says("Options")) << Output();
}

TEST_F(CommandLineTest, ALargeReportAndOneJsonDocument) {
    const json result =
        RunJson({"backup", source, "--to", "/target", "--title", "script:lines 60000"});
    EXPECT_EQ(result["status"], "good");
    EXPECT_EQ(result["lines"].size(), 60000u);
    EXPECT_GT(result["report_id"], 0);
}

}  // namespace
