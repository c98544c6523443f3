// File helpers shared by the platform libraries: where the per-user configuration lives,
// directory creation, and files replaced in one step.
#pragma once

#include <string>
#include <vector>

namespace zorvik_platform {

// $XDG_CONFIG_HOME/zorvik, else ~/.config/zorvik; empty when neither variable is set.
std::string userConfigDir();

// Creates the directory and its parents (mode 0700); true when it exists afterwards.
bool makeDirs(const std::string& dir);

// The file's lines without their line ends; empty when it cannot be read.
std::vector<std::string> readLines(const std::string& path);

// Replaces the file in one step (temporary file, fsync, rename; mode 0600), creating its
// directory: a reader, or a crash midway, sees the old file or the new one, never half.
bool writeFileAtomically(const std::string& path, const std::string& content);

} // namespace zorvik_platform
