// A destination for the tests of the client: settings in memory, nothing on disk. GetSettings
// leaves "addon" out; Archive has it.
#include "addons/KTVolume.h"

namespace {

const kit::Error kNothing = kit::Error::Make(kit::ErrorKind::Unsupported, "", "test");

class TestVolume : public KTVolume {
public:
    int32_t Archive(BMessage* message, bool) const override {
        GetSettings(message);
        message->Set("addon", "KTTest");
        message->Set("archived", true);
        return 0;
    }
    bool IsOverwrite() const override { return fOverwrite; }
    void SetOverwrite(bool overwrite) override { fOverwrite = overwrite; }
    const char* MediaName() const override { return fMedium.c_str(); }
    void ShowSettings(KTSettingsHost* parent, const BMessenger& target, const char*) override {
        BMessage description;
        description.Add("title", "Test");
        BMessage values;
        values.Add("medium", fMedium);
        description.Add("values", values);
        BMessage field;
        field.Add("key", "medium");
        field.Add("kind", "string");
        field.Add("label", "Medium");
        description.Add("field", field);
        parent->OpenSettings(description, this, target);
    }
    bool ApplySettings(const BMessage& values, const BMessenger& target,
                       std::string* problem) override {
        const std::string medium = values.Get("medium", std::string());
        if (medium == "bad") {
            *problem = "No such medium.";
            return false;
        }
        if (medium != fMedium) target.SendMessage("news"_code);
        fMedium = medium;
        return true;
    }
    void SetSettings(const BMessage& settings) override {
        fMedium = settings.Get("medium", std::string());
        fOverwrite = settings.Get<int32_t>("overwrite", 0) != 0;
    }
    void GetSettings(BMessage* settings) const override {
        settings->Set("medium", fMedium);
        settings->Set("overwrite", static_cast<int32_t>(fOverwrite));
    }
    const char* MenuName() const override { return "Test"; }

    kit::Status CheckAccess() override { return kNothing; }
    kit::Result<KTVolumeSpace> Space() override { return kNothing; }
    int64_t MediaSize() const override { return 0; }
    std::string LocalDirectory() const override { return {}; }
    kit::Status BeginBackup(const std::string&) override { return kNothing; }
    kit::Result<std::unique_ptr<KTVolumeWriter>> CreateFile(const std::string&,
                                                            const std::string&) override {
        return kNothing;
    }
    kit::Status Publish(const std::string&) override { return kNothing; }
    kit::Status RemoveBackup(const std::string&) override { return kNothing; }
    kit::Result<std::vector<std::string>> ListBackups() override { return kNothing; }
    kit::Result<std::vector<KTVolumeFile>> ListFiles(const std::string&) override {
        return kNothing;
    }
    kit::Result<size_t> ReadAt(const std::string&, const std::string&, int64_t,
                               std::span<uint8_t>) override {
        return kNothing;
    }
    kit::Status WriteRootFile(const std::string&, std::span<const uint8_t>) override {
        return kNothing;
    }

private:
    std::string fMedium;
    bool fOverwrite = false;
};

}  // namespace

#ifdef TEST_WITHOUT_OBJECT
extern "C" KTVolume* instantiate_ktvolume() {
    return nullptr;
}
#elif !defined(TEST_WITHOUT_SYMBOL)
extern "C" KTVolume* instantiate_ktvolume() {
    return new TestVolume;
}
#else
extern "C" int test_volume_of_another_kind() {
    return sizeof(TestVolume);
}
#endif
