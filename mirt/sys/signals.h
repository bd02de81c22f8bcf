// Signal dispositions of a program without a host; a host keeps its own.
//
// Ownership: nothing is kept.
// Threads: dispositions are the process's; called from start-up alone.
#pragma once

namespace mirt {

/// Writing to a pipe that nobody reads fails instead of ending the process.
void disable_sigpipe();

/// A handler that does nothing for SIGCHLD. Deliberately that, and not SIG_IGN: children that ended
/// stay waitable. Waits that no signal restarts, such as poll, are interrupted.
void disable_sigchild();

/// That handler.
void sig_chld_ignore_(int signal);

}  // namespace mirt
