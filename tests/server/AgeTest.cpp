// Sealed files, in both directions against the stock program.
#include <gtest/gtest.h>

#include "server/archive/AgeStream.h"
#include "server/archive/AgeText.h"
#include "server/archive/KeyFile.h"
#include "tests/TemporaryFolder.h"
#include "tests/server/Trees.h"

namespace server::archive {
namespace {

using kit::ErrorKind;

constexpr int kQuick = 10;  // a work factor that takes a millisecond

class Memory : public FileSource {
public:
    explicit Memory(Bytes bytes) : fBytes(std::move(bytes)) {}
    kit::Result<int64_t> Size() override { return static_cast<int64_t>(fBytes.size()); }
    kit::Result<size_t> ReadAt(int64_t offset, std::span<uint8_t> into) override {
        const auto from = std::min(static_cast<size_t>(offset), fBytes.size());
        const size_t size = std::min(into.size(), fBytes.size() - from);
        std::copy_n(fBytes.begin() + static_cast<ptrdiff_t>(from), size, into.begin());
        most = std::max(most, into.size());
        return size;
    }
    size_t most = 0;  // that was read at once

private:
    const Bytes fBytes;
};

Bytes BytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

Bytes Sealed(const AgeRecipient& recipient, std::string_view plain, size_t step = SIZE_MAX) {
    auto sealer = AgeSealer::For(recipient);
    EXPECT_TRUE(sealer);
    Bytes sealed;
    for (size_t at = 0; at < plain.size(); at += std::min(step, plain.size() - at))
        sealer->Add(BytesOf(plain.substr(at, step)), &sealed);
    sealer->Finish(&sealed);
    EXPECT_EQ(sealer->SizeOf(static_cast<int64_t>(plain.size())),
              static_cast<int64_t>(sealed.size()));
    return sealed;
}

class Age : public testing::Test {
protected:
    Age() { WriteWhole(fRoot + "/id.txt", fIdentity->Text().Text()); }

    std::string Shell(const std::string& command) const {
        return server::Shell("cd " + fRoot + " && " + command);
    }
    // With the password typed on a terminal.
    std::string Typing(const std::string& password, const std::string& command) const {
        return Shell("python3 " VELMORA_SOURCE_DIR "/tests/support/type_password.py '" + password +
                     "' '" + command + "'");
    }
    void Write(const std::string& name, const Bytes& bytes) const {
        WriteWhole(fRoot + "/" + name, {reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
    Bytes Read(const std::string& name) const { return BytesOf(ReadWhole(fRoot + "/" + name)); }
    std::unique_ptr<FileSource> Open(Bytes sealed) const {
        return OpenAge(std::make_unique<Memory>(std::move(sealed)), fIdentity);
    }
    // All of it, or what was wrong.
    ErrorKind Whole(Bytes sealed, std::string* plain = nullptr) const {
        const auto file = Open(std::move(sealed));
        Bytes bytes(1'000'000);
        const auto got = file->ReadAt(0, bytes);
        if (!got) return got.error().kind;
        if (plain) plain->assign(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(*got));
        return ErrorKind::None;
    }

    const TemporaryFolder fFolder;
    const std::string fRoot = fFolder.Path();
    const std::shared_ptr<const AgeIdentity> fIdentity =
        std::make_shared<AgeIdentity>(AgeIdentity::Generate());
    const AgeRecipient fRecipient = fIdentity->Recipient();
};

TEST_F(Age, TheStockProgramOpensOursAndWeItsWhateverTheSize) {
    EXPECT_EQ(Shell("age-keygen -y id.txt"), fRecipient.Text() + "\n");
    for (const size_t size : {0, 1, 65535, 65536, 65537, 131072, 131073, 700'001}) {
        const std::string plain = NoiseBytes(size, size);
        WriteWhole(fRoot + "/plain", plain);
        for (const size_t step : {size_t{1000}, size_t{65536}, SIZE_MAX}) {
            Write("ours.age", Sealed(fRecipient, plain, step));
            EXPECT_EQ(Shell("age -d -i id.txt ours.age | cmp - plain"), "") << size;
        }
        EXPECT_EQ(Shell("age -r " + fRecipient.Text() + " -o theirs.age plain"), "");
        std::string opened;
        EXPECT_EQ(Whole(Read("theirs.age"), &opened), ErrorKind::None) << size;
        EXPECT_TRUE(opened == plain) << size;
    }
}

TEST_F(Age, AnyPlaceIsReadWithoutTheRest) {
    const std::string plain = NoiseBytes(3'000'000);
    auto memory = std::make_unique<Memory>(Sealed(fRecipient, plain));
    Memory& below = *memory;
    const auto file = OpenAge(std::move(memory), fIdentity);
    ASSERT_TRUE(file->Size());
    EXPECT_EQ(*file->Size(), 3'000'000);
    below.most = 0;
    for (const auto& [offset, size] : std::vector<std::pair<size_t, size_t>>{{0, 10},
                                                                             {65530, 12},
                                                                             {65536, 65536},
                                                                             {1'000'000, 200'000},
                                                                             {2'999'990, 100},
                                                                             {3'000'000, 5},
                                                                             {3'100'000, 5},
                                                                             {123, 0}}) {
        Bytes into(size);
        const auto got = file->ReadAt(static_cast<int64_t>(offset), into);
        ASSERT_TRUE(got) << offset << got.error().Text();
        const std::string_view wanted =
            offset < plain.size() ? std::string_view(plain).substr(offset, size) : "";
        into.resize(*got);
        EXPECT_TRUE(into == BytesOf(wanted)) << offset;
    }
    EXPECT_LT(below.most, 400'000u);
}

TEST_F(Age, OneOfSeveralRecipientsIsEnoughAndNobodyElseOpensIt) {
    const std::string other = AgeIdentity::Generate().Recipient().Text();
    WriteWhole(fRoot + "/plain", "for two");
    Shell("age -r " + other + " -r " + fRecipient.Text() + " -o both.age plain");
    std::string plain;
    EXPECT_EQ(Whole(Read("both.age"), &plain), ErrorKind::None);
    EXPECT_EQ(plain, "for two");
    Shell("age -r " + other + " -o other.age plain");
    EXPECT_EQ(Whole(Read("other.age")), ErrorKind::Denied);
    Shell("age -a -r " + fRecipient.Text() + " -o armoured.age plain");
    EXPECT_EQ(Whole(Read("armoured.age")), ErrorKind::Damaged);
}

TEST_F(Age, AKeyFileOpensWithItsPasswordForBothPrograms) {
    const auto made = MakeProtection(Secret(std::string_view("open sesame")), kQuick);
    ASSERT_TRUE(made) << made.error().Text();
    Write("key.age", made->keyFile);
    const auto recipient = AgeRecipient::FromText(made->recipient);
    ASSERT_TRUE(recipient);
    Write("medium.age", Sealed(*recipient, "what was saved"));
    EXPECT_EQ(Typing("open sesame", "age -d -i key.age medium.age"), "what was saved");
    EXPECT_NE(Typing("open", "age -d -i key.age medium.age").find("incorrect passphrase"),
              std::string::npos);
    const auto opened = OpenKeyFile(made->keyFile, Secret(std::string_view("open sesame")));
    ASSERT_TRUE(opened) << opened.error().Text();
    EXPECT_EQ(opened->Recipient(), *recipient);
    for (const std::string_view wrong : {"", "open", "open sesame "}) {
        const auto denied = OpenKeyFile(made->keyFile, Secret(wrong));
        ASSERT_FALSE(denied);
        EXPECT_EQ(denied.error().kind, ErrorKind::Denied);
    }

    // One that the stock program made of one of its own identities.
    EXPECT_EQ(Typing("stock", "age-keygen -o theirs.txt && age -p -o theirs.age theirs.txt")
                  .find("error"),
              std::string::npos);
    const auto theirs = OpenKeyFile(Read("theirs.age"), Secret(std::string_view("stock")));
    ASSERT_TRUE(theirs) << theirs.error().Text();
    EXPECT_EQ(theirs->Recipient().Text() + "\n", Shell("age-keygen -y theirs.txt"));
    // What no key is in.
    WriteWhole(fRoot + "/letter", "Dear reader");
    Typing("stock", "age -p -o letter.age letter");
    const auto letter = OpenKeyFile(Read("letter.age"), Secret(std::string_view("stock")));
    ASSERT_FALSE(letter);
    EXPECT_EQ(letter.error().kind, ErrorKind::Damaged);
}

TEST_F(Age, EveryChangeToTheHeaderIsFound) {
    const Bytes good = Sealed(fRecipient, "short");
    for (size_t at = 0; at < good.size(); ++at) {
        for (const int flip : {1, 32, 128}) {
            Bytes changed = good;
            changed[at] = static_cast<uint8_t>(changed[at] ^ flip);
            EXPECT_NE(Whole(changed), ErrorKind::None) << at;
        }
        EXPECT_NE(Whole(Bytes(good.begin(), good.begin() + static_cast<ptrdiff_t>(at))),
                  ErrorKind::None)
            << at;
    }
}

TEST_F(Age, DamageToThePayloadIsFoundAndTheRestStaysReadable) {
    constexpr size_t kWhole = kAgeChunk + kAgeTagSize;
    const std::string plain = NoiseBytes(5 * kAgeChunk);
    const Bytes good = Sealed(fRecipient, plain);
    const size_t head = good.size() - 5 * kWhole;
    const auto chunk = [&](size_t number) {
        return good.begin() + static_cast<ptrdiff_t>(head + number * kWhole);
    };
    const auto reads = [&](const Bytes& sealed, size_t number, size_t size = kAgeChunk) {
        Bytes into(size);
        const auto got = Open(sealed)->ReadAt(static_cast<int64_t>(number * kAgeChunk), into);
        return got && *got == size &&
               into == BytesOf(std::string_view(plain).substr(number * kAgeChunk, size));
    };
    Bytes flipped = good;
    flipped[head + 2 * kWhole + 777] ^= 1;
    Bytes swapped = good;
    std::swap_ranges(swapped.begin() + (chunk(1) - good.begin()),
                     swapped.begin() + (chunk(2) - good.begin()),
                     swapped.begin() + (chunk(2) - good.begin()));
    Bytes dropped(good.begin(), chunk(1));
    dropped.insert(dropped.end(), chunk(2), good.end());
    for (size_t number = 0; number < 5; ++number) {
        EXPECT_EQ(reads(flipped, number), number != 2) << number;
        EXPECT_EQ(reads(swapped, number), number != 1 && number != 2) << number;
        EXPECT_EQ(reads(dropped, number), number == 0) << number;
    }
    // Cut off anywhere: what is in front of the cut can be had, but never up to a false end.
    for (const size_t size :
         {head, head + 15, head + 16, head + kWhole - 1, head + kWhole, head + kWhole + 1,
          head + kWhole + 15, head + kWhole + 16, head + kWhole + 17, head + 4 * kWhole}) {
        const Bytes cut(good.begin(), good.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(Whole(cut), ErrorKind::Damaged) << size;
        EXPECT_EQ(reads(cut, 0, 1000), size > head + kWhole) << size;
    }
    Bytes longer = good;
    longer.resize(longer.size() + 100);
    EXPECT_EQ(Whole(longer), ErrorKind::Damaged);
    EXPECT_TRUE(reads(longer, 3));
}

TEST_F(Age, HostileHeadersAreRefused) {
    const std::string begin = "age-encryption.org/v1\n";
    const std::string mac = "--- " + Base64(AgeKey{}) + "\n";
    const std::string key = Base64(AgeKey{});
    const auto kindOf = [](const std::string& text) {
        const auto header = ParseAgeHeader(BytesOf(text));
        return header ? ErrorKind::None : header.error().kind;
    };
    const auto between = [&](std::string_view stanzas) {
        std::string text = begin;
        text += stanzas;
        text += mac;
        return kindOf(text);
    };
    EXPECT_EQ(between("-> X25519 " + key + "\n" + key + "\n"), ErrorKind::None);
    const std::string full(64, 'A');
    EXPECT_EQ(between("-> other\n" + full + "\n\n"), ErrorKind::None);
    for (const char* bad : {"", "->\nAA\n", "-> \nAA\n", "-> a  b\nAA\n", "-> a\x7f\nAA\n",
                            "-> a\nAA=\n", "-> a\nAB\n", "-> a\nA\n", "-> a\r\nAA\r\n"}) {
        EXPECT_EQ(between(bad), ErrorKind::Damaged) << bad;
    }
    EXPECT_EQ(between("-> a\n" + full + "A\n"), ErrorKind::Damaged);
    EXPECT_EQ(between("-> a\n" + full + "\n"), ErrorKind::Damaged);
    EXPECT_EQ(between("-> a" + std::string(100'000, 'a') + "\n\n"), ErrorKind::Damaged);
    EXPECT_EQ(kindOf("age-encryption.org/v2\n-> a\n\n" + mac), ErrorKind::Damaged);
    for (const char* end : {"", "-> a\nAA\n", "-> a\nAA\n---\n", "-> a\nAA\n--- AAAA\n"}) {
        std::string text = begin;
        text += end;
        EXPECT_EQ(kindOf(text), ErrorKind::Damaged) << end;
    }
    std::string crowd = begin, endless = begin + "-> a\n";
    for (int i = 0; i < 100; ++i)
        crowd += "-> a\n\n";
    for (int i = 0; i < 2000; ++i)
        endless += full + "\n";
    EXPECT_EQ(kindOf(crowd + mac), ErrorKind::Damaged);
    EXPECT_EQ(kindOf(endless + "\n" + mac), ErrorKind::Damaged);

    // Keys and passwords that cannot be.
    const auto opening = [&](const std::string& stanza) {
        const auto header = ParseAgeHeader(BytesOf(begin + stanza + mac));
        EXPECT_TRUE(header) << stanza;
        return FileKeyFor(*header, *fIdentity).error().kind;
    };
    EXPECT_EQ(opening("-> X25519 " + key + "\n" + key + "\n"), ErrorKind::Damaged);
    EXPECT_EQ(opening("-> X25519\n" + key + "\n"), ErrorKind::Damaged);
    EXPECT_EQ(opening("-> X25519 AAAA\n" + key + "\n"), ErrorKind::Damaged);
    EXPECT_EQ(opening("-> other AAAA\n" + key + "\n"), ErrorKind::Denied);
    const auto typing = [&](const std::string& stanzas) {
        const auto header = ParseAgeHeader(BytesOf(begin + stanzas + mac));
        EXPECT_TRUE(header) << stanzas;
        return FileKeyFor(*header, Secret(std::string_view("pw"))).error().kind;
    };
    const std::string salt = Base64(Bytes(16));
    const auto scrypt = [&](const std::string& factor) {
        return "-> scrypt " + salt + " " + factor + "\n" + key + "\n";
    };
    EXPECT_EQ(typing(scrypt("4")), ErrorKind::Denied);
    EXPECT_EQ(typing(scrypt("4") + scrypt("4")), ErrorKind::Damaged);
    for (const char* factor : {"21", "30", "64", "9999"})
        EXPECT_EQ(typing(scrypt(factor)), ErrorKind::TooLarge) << factor;
    for (const char* factor : {"0", "04", "-1", "+4", "4.0", "99999999999999999999"})
        EXPECT_EQ(typing(scrypt(factor)), ErrorKind::Damaged) << factor;
    EXPECT_EQ(typing("-> scrypt AAAA 4\n" + key + "\n"), ErrorKind::Damaged);
    EXPECT_EQ(typing("-> scrypt " + salt + " 4\nAAAA\n"), ErrorKind::Damaged);
    // A recipient that gives everybody the same secret.
    EXPECT_EQ(AgeSealer::For(AgeRecipient(AgeKey{})).error().kind, ErrorKind::Invalid);
}

TEST_F(Age, TextsOfKeysAreTakenOnlyAsTheyAreWritten) {
    const std::string good = fRecipient.Text();
    EXPECT_EQ(AgeRecipient::FromText(good), fRecipient);
    const std::string secret(fIdentity->Text().Text());
    EXPECT_EQ(AgeIdentity::FromText(secret)->Recipient(), fRecipient);
    for (size_t at = 0; at < good.size(); ++at) {
        std::string changed = good;
        changed[at] = changed[at] == 'q' ? 'p' : 'q';
        EXPECT_FALSE(AgeRecipient::FromText(changed)) << changed;
        EXPECT_FALSE(AgeRecipient::FromText(good.substr(0, at))) << at;
    }
    EXPECT_FALSE(AgeRecipient::FromText("A" + good.substr(1)));  // one case or the other
    EXPECT_FALSE(AgeRecipient::FromText(secret));
    EXPECT_FALSE(AgeIdentity::FromText(good));
    EXPECT_FALSE(AgeRecipient::FromText(std::string(Bech32("age", Bytes(31)).Text())));
    EXPECT_FALSE(AgeRecipient::FromText(std::string(Bech32("age", Bytes(33)).Text())));
}

}  // namespace
}  // namespace server::archive
