// The server's process with an engine that plays scripts, a client that speaks the protocol by
// itself, and what tests say by it. Codes and numbers are written out: a constant may be wrong.
#pragma once

#include <gtest/gtest.h>

#include <fstream>

#include "core/locale/KTLocale.h"
#include "core/locale/TextTable.h"
#include "core/report/ReportLines.h"
#include "tests/support/ServerHouse.h"

namespace tests {

class ServerFixture : public testing::Test {
protected:
    ServerFixture() : house(VELMORA_FAKE_SERVER) {
        KTLocale::GetInstance()->SetDefaultText(core::kTextTable.data(), core::kTextCount,
                                                "English");
    }
    void Start() {
        house.Start();
        peer = house.ConnectClient();
        AcceptPanels(*peer);
    }
    void KillAndStart() {
        house.Kill();
        EXPECT_TRUE(peer->WaitForClose());
        Start();
    }

    // Answers 'KTJS' by a panel with token 77.
    static void AcceptPanels(ScriptedPeer& client) {
        client.SetAnswers([&client](const BMessage& question) -> std::optional<BMessage> {
            if (question.what != "KTJS"_code) return std::nullopt;
            BMessage answer("KTAB"_code);
            answer.Add("job_id", question.Get<int32_t>("job_id", 0));
            answer.Add("user", client.Self(77));
            return answer;
        });
    }
    BMessage Job(const std::string& title, const std::vector<std::string>& script = {},
                 const std::string& path = "/somewhere", int32_t type = 1) const {
        BMessage info;
        info.Add("title", title);
        BMessage volume;
        volume.Add("addon", "KTImage");
        volume.Add("path", path);
        BMessage job("KTJA"_code);
        job.Add("client_id", peer->Team());
        job.Add("job_type", type);
        job.Add("addon", "KTImage");
        job.Add("volume", volume);
        job.Add("start_info", info);
        for (const auto& step : script)
            job.Add("script", step);
        return job;
    }
    static BMessage With(BMessage job, const char* name, int32_t value) {
        BMessage info = job.Get("start_info", BMessage());
        info.Set(name, value);
        job.Set("start_info", info);
        return job;
    }
    static BMessage About(uint32_t code, int32_t id) {
        BMessage message(code);
        message.Add("job_id", id);
        return message;
    }
    void Tell(uint32_t code, int32_t id, const char* field = nullptr, int32_t value = 0) {
        BMessage message = About(code, id);
        if (field) message.Add(field, value);
        peer->Send(message);
    }
    int32_t Submit(const BMessage& job) {
        peer->Send(job);
        return peer->WaitFor("KTJI"_code).message.Get<int32_t>("job_id", 0);
    }
    static ScriptedPeer::Condition Of(int32_t id, const char* field = nullptr, int32_t value = 0) {
        return [=](const BMessage& message) {
            return message.Get<int32_t>("job_id", -1) == id &&
                   (!field || message.Get<int32_t>(field, -1) == value);
        };
    }
    void WaitForStatus(int32_t id, int32_t status) {
        peer->WaitFor("KTjc"_code, Of(id, "jobstatus", status));
    }
    int32_t EndOf(int32_t id) {
        return peer->WaitFor("KTJf"_code, Of(id)).message.Get<int32_t>("status", -1);
    }
    int Reports() { return peer->Ask(BMessage("rpGL"_code)).Count("report_id"); }
    // The lines of the newest report of a job, as "linetype: text".
    std::vector<std::string> ReportOf(int32_t jobId) {
        const BMessage list = peer->Ask(BMessage("rpGL"_code));
        int32_t report = 0;
        for (int32_t i = 0; i < list.Count("report_id"); ++i) {
            if (list.Get<int32_t>("job_id", 0, i) == jobId)
                report = list.Get<int32_t>("report_id", 0, i);
        }
        return Lines(OpenReport(report));
    }
    void AskForReport(int32_t report) {
        BMessage open("rpOP"_code);
        open.Add("report_id", report);
        open.Add("user", peer->Self(88));
        peer->Send(open);
    }
    BMessage OpenReport(int32_t report) {
        AskForReport(report);
        return peer->WaitFor("rpRP"_code).message;
    }
    static std::vector<std::string> Lines(const BMessage& report) {
        std::vector<std::string> lines;
        lines.reserve(static_cast<size_t>(report.Count("text_id")));
        for (int32_t i = 0; i < report.Count("text_id"); ++i) {
            lines.push_back(std::to_string(report.Get<int32_t>("linetype", 0, i)) + ": " +
                            core::ReportLineText(report, i));
        }
        return lines;
    }
    static void Scratch(const std::string& path, std::streamoff from, size_t size) {
        std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
        file.seekp(from);
        file << std::string(size, '\x5a');
    }
    std::string File(const std::string& name) const { return house.Root() + "/" + name; }
    void Touch(const std::string& name) const { std::ofstream(File(name)) << "x"; }

    ServerHouse house;
    std::unique_ptr<ScriptedPeer> peer;
};

}  // namespace tests
