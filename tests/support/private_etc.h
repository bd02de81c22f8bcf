// Runs a test's body where /etc is private and empty: the machine's own is never touched.
#pragma once

#include <functional>
#include <string>

namespace tests {

/// Runs `body` as root in a process of its own, in which an empty file system hides /etc. What
/// fails or skips there fails or skips the calling test; a system that gives no private /etc skips
/// it too, with the reason. The last statement of a test.
void in_private_etc(const std::function<void()>& body);

// What follows is for such a body alone.

/// Mounts an empty tmpfs on a directory, with options as for mount, such as "size=16k".
void mount_tmpfs(const std::string& directory, const std::string& options);

/// Makes such a tmpfs read-only.
void make_read_only(const std::string& directory);

}  // namespace tests
