// What rclone said, as an error of ours.
#pragma once

#include <string>
#include <string_view>

#include "kit/support/Result.h"

// `code` is the exit code, `said` what came on standard error, `path` what it was about. The
// error's words are ours where the case is known; else rclone's last line without anything in it
// that might be secret. ErrorKind::Io is what may pass: a connection that is down, lost or hung.
kit::Error RcloneError(int code, std::string_view said, const std::string& path);
// A line without its time stamp; addresses only with their host, and nothing that looks like a key.
std::string WithoutSecrets(std::string_view line);
