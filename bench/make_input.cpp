// Makes the trees that the backup benchmarks save: make_input small|big|tiny|million FOLDER. The
// same bytes every time.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

struct Random {
    uint64_t state;
    uint64_t Next() {
        state ^= state << 13;
        state ^= state >> 7;
        state ^= state << 17;
        return state;
    }
    double Unit() { return static_cast<double>(Next() >> 11) / static_cast<double>(1ULL << 53); }
};

// Text that packs about as source code does: frequent and rare words, names, indented lines.
class Prose {
public:
    explicit Prose(uint64_t seed) : fRandom{seed} {
        for (int i = 0; i < 6000; ++i) {
            std::string word;
            for (uint64_t left = 2 + fRandom.Next() % 9; left > 0; --left) {
                word += static_cast<char>('a' + fRandom.Next() % 26);
            }
            fWords.push_back(word);
        }
    }
    void Fill(std::string& out, size_t size) {
        out.clear();
        while (out.size() < size) {
            out.append(4 * (fRandom.Next() % 4), ' ');
            for (uint64_t words = 2 + fRandom.Next() % 9; words > 0; --words) {
                const double u = fRandom.Unit();
                out += fWords[static_cast<size_t>(u * u * u * static_cast<double>(fWords.size()))];
                out += " .,;(){}=<>_"[fRandom.Next() % 12];
            }
            if (fRandom.Next() % 8 == 0) out += std::to_string(fRandom.Next() % 100000);
            out += '\n';
        }
        out.resize(size);
    }
    void Noise(std::string& out, size_t size) {
        out.resize(size);
        for (size_t i = 0; i + 8 <= size; i += 8) {
            const uint64_t value = fRandom.Next();
            std::memcpy(out.data() + i, &value, 8);
        }
    }
    Random& Dice() { return fRandom; }

private:
    Random fRandom;
    std::vector<std::string> fWords;
};

void Write(const std::string& path, const std::string& data) {
    const int fd = ::open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0644);
    size_t done = 0;
    while (fd >= 0 && done < data.size()) {
        const ssize_t put = ::write(fd, data.data() + done, data.size() - done);
        if (put <= 0) break;
        done += static_cast<size_t>(put);
    }
    if (fd < 0 || done < data.size()) {
        std::perror(path.c_str());
        std::_Exit(1);
    }
    ::close(fd);
}

// Files in folders of `perFolder`, these in folders of 40.
void Many(const std::string& root, int files, int perFolder, double medianSize, double spread,
          size_t most, bool binaries) {
    Prose prose(4711);
    std::string data, folder;
    for (int i = 0; i < files; ++i) {
        if (i % perFolder == 0) {
            const int number = i / perFolder;
            const std::string upper = root + "/part-" + std::to_string(number / 40);
            if (number % 40 == 0) ::mkdir(upper.c_str(), 0755);
            folder = upper + "/folder-" + std::to_string(number);
            ::mkdir(folder.c_str(), 0755);
        }
        Random& dice = prose.Dice();
        double normal = -6;
        for (int k = 0; k < 12; ++k)
            normal += dice.Unit();
        const size_t size =
            std::min(most, static_cast<size_t>(medianSize * std::exp(spread * normal)));
        const bool binary = binaries && dice.Next() % 8 == 0;
        if (binary) {
            prose.Noise(data, size);
        } else {
            prose.Fill(data, size);
        }
        Write(folder + "/file-" + std::to_string(i) + (binary ? ".bin" : ".cpp"), data);
    }
}

void Big(const std::string& root) {
    Prose prose(4711);
    std::string data;
    for (int i = 0; i < 12; ++i) {
        std::string whole;
        for (int k = 0; k < 26; ++k) {
            if (i % 2 == 0) {
                prose.Noise(data, 8'000'000);
            } else {
                prose.Fill(data, 8'000'000);
            }
            whole += data;
        }
        Write(root + "/big-" + std::to_string(i), whole);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::string kind = argc == 3 ? argv[1] : "";
    const std::string root = argc == 3 ? argv[2] : "";
    ::mkdir(root.c_str(), 0755);
    if (kind == "small") {
        Many(root, 120'000, 100, 4000, 1.5, 2'000'000, true);
    } else if (kind == "big") {
        Big(root);
    } else if (kind == "tiny") {
        Many(root, 500'000, 200, 80, 0.7, 1000, false);
    } else if (kind == "million") {
        Many(root, 1'000'000, 200, 20, 0.5, 200, false);
    } else {
        std::fprintf(stderr, "usage: make_input small|big|tiny|million FOLDER\n");
        return 2;
    }
    return 0;
}
