#include "server/archive/KeyFile.h"

#include <algorithm>

#include "server/archive/AgeStream.h"

namespace server::archive {

namespace {

// The lines of an identity file are a key, empty, or a remark.
constexpr std::string_view kRemark = "# public key: ";

}  // namespace

kit::Result<Protection> MakeProtection(const Secret& password, int workFactor) {
    const AgeIdentity identity = AgeIdentity::Generate();
    Protection protection;
    protection.recipient = identity.Recipient().Text();
    auto sealer = AgeSealer::For(password, workFactor);
    if (!sealer) return sealer.error();

    const std::string remark = std::string(kRemark) + protection.recipient + "\n";
    const Secret key = identity.Text();
    Secret text(remark.size() + key.Size() + 1);
    auto* at = std::copy(remark.begin(), remark.end(), text.Data().data());
    at = std::copy(key.Data().begin(), key.Data().end(), at);
    *at = '\n';
    sealer->Add(text.Data(), &protection.keyFile);
    sealer->Finish(&protection.keyFile);
    return protection;
}

kit::Result<AgeIdentity> OpenKeyFile(std::span<const uint8_t> keyFile, const Secret& password) {
    if (keyFile.size() > kMostKeyFile) {
        return kit::Error::Make(kit::ErrorKind::TooLarge, "", "no key");
    }
    const auto opened = UnsealSmall(keyFile, password);
    if (!opened) return opened.error();
    std::string_view text = opened->Text();
    while (!text.empty()) {
        const size_t end = std::min(text.find('\n'), text.size());
        std::string_view line = text.substr(0, end);
        text.remove_prefix(std::min(end + 1, text.size()));
        if (line.ends_with('\r')) line.remove_suffix(1);
        if (line.empty() || line.starts_with('#')) continue;
        auto identity = AgeIdentity::FromText(line);
        if (!identity) break;
        return std::move(*identity);
    }
    return kit::Error::Make(kit::ErrorKind::Damaged, "", "there is no key in it");
}

}  // namespace server::archive
