// Trees that are saved, and what can be known of them.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "kit/support/UniqueFd.h"

namespace server {

// Everything that can be known of a tree, by path: {"/dir/file", facts in words}. Independent of
// the engine.
std::map<std::string, std::string> DescribeTree(const std::string& root);
// What differs, in words; empty: nothing.
std::string Differences(const std::map<std::string, std::string>& left,
                        const std::map<std::string, std::string>& right);
inline std::string TreeDifferences(const std::string& left, const std::string& right) {
    return Differences(DescribeTree(left), DescribeTree(right));
}

// A tree with one of everything that a backup must carry.
void MakeNastyTree(const std::string& root);
void WriteWhole(const std::string& path, std::string_view content);
std::string ReadWhole(const std::string& path);
// Changes one byte of a file.
void Damage(const std::string& path, size_t at);
// A socket's file, bound for as long as this is kept.
kit::UniqueFd MakeSocket(const std::string& path);
std::string NoiseBytes(size_t size, uint64_t seed = 4711);

// What a shell command prints, with "exit N" at the end when it failed.
std::string Shell(const std::string& command);

}  // namespace server
