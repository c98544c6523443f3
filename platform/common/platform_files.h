// File helpers shared by the platform libraries: where the per-user configuration lives,
// directory creation, and files replaced in one step.
#pragma once

#include <string>
#include <vector>

namespace zorvik_platform {

// True in a process started set-uid or set-gid (AT_SECURE): the libraries then run inside a
// program with more rights than the user who started it, and take nothing from that user's
// environment or home (no paths, no code, no settings).
bool secureMode();

// The variable's value, or nullptr when it is unset or empty, and always in secure mode.
const char* environment(const char* name);

// $XDG_CONFIG_HOME/zorvik, else ~/.config/zorvik; empty when neither variable is set, and
// in secure mode.
std::string userConfigDir();

// Opens a file of our own for writing (`flags` as for open(2), O_CREAT included as needed)
// without following a symbolic link at its last component (nor blocking on a FIFO), and keeps it only when it is a
// regular file with a single link, owned by this process's effective user. -1 otherwise;
// `refused` is set when a file was there but is not ours to write.
int openOwnFile(const std::string& path, int flags, unsigned mode, bool* refused = nullptr);

// Creates the directory and its parents (mode 0700); true when it exists afterwards.
bool makeDirs(const std::string& dir);

// The file's lines without their line ends; empty when it cannot be read.
std::vector<std::string> readLines(const std::string& path);

// Replaces the file in one step (temporary file, fsync, rename; mode 0600), creating its
// directory: a reader, or a crash midway, sees the old file or the new one, never half.
bool writeFileAtomically(const std::string& path, const std::string& content);

} // namespace zorvik_platform
