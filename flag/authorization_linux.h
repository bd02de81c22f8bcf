// The programs through which administrator rights are asked for on Linux, for tests to replace.
//
// Ownership: the paths are static text.
// Threads: nothing here changes while a program runs; a test sets them before its first call.
#pragma once

namespace flag::authorization_programs {

/// Absolute paths, never looked up along PATH: a user's own directories are not asked.
extern const char* pkcheck;
extern const char* pkexec;
extern const char* sudo;

}  // namespace flag::authorization_programs
