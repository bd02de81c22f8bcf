// Signal dispositions of a program without a host; a host keeps its own.
//
// Threads: dispositions are the process's; called from start-up alone.
#pragma once

namespace mirt {

/// Writing to a pipe that nobody reads fails instead of ending the process.
void disable_sigpipe();

/// Children that end interrupt nothing. Deliberately a handler that does nothing, and not SIG_IGN:
/// they stay waitable.
void disable_sigchild();

/// That handler.
void sig_chld_ignore_(int signal);

}  // namespace mirt
