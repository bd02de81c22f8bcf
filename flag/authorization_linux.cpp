// Administrator rights through polkit, the desktop's authorisation service; through sudo where a
// machine has no polkit.
//
// pkcheck asks the user, on behalf of this process. pkexec, which polkit knows as a child of the
// same process, then finds the consent that was just given and does not ask again. Both are started
// directly: no shell, no search path, no descriptor above 2.
#include "flag/authorization_linux.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "flag/authorization.h"

namespace flag::authorization_programs {

const char* pkcheck = "/usr/bin/pkcheck";
const char* pkexec = "/usr/bin/pkexec";
const char* sudo = "/usr/bin/sudo";

}  // namespace flag::authorization_programs

namespace programs = flag::authorization_programs;

namespace {

/// How a program becomes root.
enum class way { none, direct, polkit, sudo };

}  // namespace

struct AuthorizationOpaqueRef {
  mutable way granted = way::none;
  mutable pid_t child = -1;
};

namespace {

// The action of packaging/, see there.
constexpr char action[] = "org.quorvex.store-product-flags";

using command_line = std::vector<const char*>;

char path_variable[] = "PATH=/usr/sbin:/usr/bin:/sbin:/bin";
/// For all but sudo, whose askpass program needs the user's own. pkexec gives up over values that
/// it would not even pass on, such as an unlisted SHELL.
char* const plain_environment[] = {path_variable, nullptr};

/// How a program is to be started; made before anything is forked.
class start_settings {
 public:
  /// The output goes to `output`, or nowhere if that is -1; so does what a quiet one complains of.
  start_settings(int output, bool quiet) {
    ::posix_spawn_file_actions_init(&files_);
    ::posix_spawnattr_init(&attributes_);
    // The output first: where the caller has no standard input, `output` may be number 0.
    if (output != -1) {
      ::posix_spawn_file_actions_adddup2(&files_, output, STDOUT_FILENO);
    } else {
      nowhere(STDOUT_FILENO, O_WRONLY);
    }
    nowhere(STDIN_FILENO, O_RDONLY);
    // It may be missing (-1), or be an end of the pipe that took its free number.
    if (quiet || ::fcntl(STDERR_FILENO, F_GETFD) != 0) nowhere(STDERR_FILENO, O_WRONLY);
    ::posix_spawn_file_actions_addclosefrom_np(&files_, STDERR_FILENO + 1);

    // What the caller ignores or blocks is not what these programs expect.
    sigset_t signals;
    ::sigfillset(&signals);
    ::posix_spawnattr_setsigdefault(&attributes_, &signals);
    ::sigemptyset(&signals);
    ::posix_spawnattr_setsigmask(&attributes_, &signals);
    ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  }
  ~start_settings() {
    ::posix_spawnattr_destroy(&attributes_);
    ::posix_spawn_file_actions_destroy(&files_);
  }
  start_settings(const start_settings&) = delete;
  start_settings& operator=(const start_settings&) = delete;

  /// Starts a program, its path and arguments ended by a null. Its process, or -1.
  pid_t start(const command_line& command, char* const* environment) const {
    pid_t child = -1;
    const int error = ::posix_spawn(&child, command[0], &files_, &attributes_,
                                    const_cast<char* const*>(command.data()), environment);
    return error == 0 ? child : -1;
  }

 private:
  void nowhere(int descriptor, int mode) {
    ::posix_spawn_file_actions_addopen(&files_, descriptor, "/dev/null", mode, 0);
  }

  posix_spawn_file_actions_t files_;
  posix_spawnattr_t attributes_;
};

/// Waits for a child. Its exit status; -1 if a signal ended it, or if someone else has taken it.
int wait_for(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) == -1) {
    if (errno != EINTR) return -1;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Whether children of this process vanish at their end, and their exit status with them.
bool children_vanish() {
  struct sigaction now;
  return ::sigaction(SIGCHLD, nullptr, &now) == 0 &&
         (now.sa_handler == SIG_IGN || (now.sa_flags & SA_NOCLDWAIT) != 0);
}

/// A process between this one and the program keeps the exit status and hands it over in a pipe:
/// what this one does with SIGCHLD concerns all its threads and is left as it is.
int status_through_watcher(const start_settings& settings, const command_line& command,
                           char* const* environment) {
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return -1;
  const pid_t watcher = ::fork();
  if (watcher == 0) {
    // Only calls that are good in the child of a program with threads.
    ::signal(SIGCHLD, SIG_DFL);
    const int answer = ::dup2(ends[1], STDERR_FILENO + 1);
    ::close_range(STDERR_FILENO + 2, ~0U, 0);
    const pid_t child = settings.start(command, environment);
    const int status = child == -1 ? -1 : wait_for(child);
    ::_exit(::write(answer, &status, sizeof status) == sizeof status ? 0 : 1);
  }
  ::close(ends[1]);
  int status = -1;
  ssize_t size = 0;
  while (watcher != -1 && (size = ::read(ends[0], &status, sizeof status)) == -1 &&
         errno == EINTR) {
  }
  ::close(ends[0]);
  if (watcher != -1) wait_for(watcher);
  return size == sizeof status ? status : -1;
}

/// Runs a program that answers with its exit status; -1 if there is no answer.
int status_of(const command_line& command, char* const* environment) {
  const start_settings settings(-1, true);
  if (children_vanish()) return status_through_watcher(settings, command, environment);
  const pid_t child = settings.start(command, environment);
  return child == -1 ? -1 : wait_for(child);
}

/// The time at which this process was started, as the kernel counts it; empty if it does not tell.
std::string start_time() {
  const int file = ::open("/proc/self/stat", O_RDONLY | O_CLOEXEC);
  if (file == -1) return {};
  char text[1024];
  const ssize_t size = ::read(file, text, sizeof text);
  ::close(file);
  const std::string fields(text, size < 0 ? 0 : static_cast<std::size_t>(size));
  // The second field, a name in brackets, may hold anything; the 22nd is wanted.
  std::size_t at = fields.rfind(')');
  for (int field = 2; field < 22 && at != std::string::npos; ++field) at = fields.find(' ', at + 1);
  if (at == std::string::npos) return {};
  return fields.substr(at + 1, fields.find(' ', at + 1) - at - 1);
}

/// This process as polkit names it: a number alone could come to mean another.
std::string this_process() {
  const std::string number = std::to_string(::getpid());
  const std::string since = start_time();
  return since.empty() ? number : number + "," + since + "," + std::to_string(::getuid());
}

OSStatus ask_polkit(bool may_ask) {
  const std::string process = this_process();
  command_line command = {programs::pkcheck, "--action-id", action, "--process", process.c_str()};
  if (may_ask) command.push_back("--allow-user-interaction");
  command.push_back(nullptr);
  switch (status_of(command, plain_environment)) {
    case 0:
      return errAuthorizationSuccess;
    case 1:
      return errAuthorizationDenied;
    case 2:
      return errAuthorizationInteractionNotAllowed;
    case 3:
      return errAuthorizationCanceled;
    default:
      return errAuthorizationInternal;  // 126 no bus, 127 no service or an unknown action
  }
}

/// sudo's own failure cannot be told from its program's, so it is asked beforehand.
OSStatus ask_sudo(bool may_ask) {
  if (status_of({programs::sudo, "-n", "-v", nullptr}, environ) == 0) {
    return errAuthorizationSuccess;
  }
  const char* const askpass = std::getenv("SUDO_ASKPASS");
  if (!may_ask || askpass == nullptr || *askpass == '\0') {
    return errAuthorizationInteractionNotAllowed;
  }
  return status_of({programs::sudo, "-A", "-v", nullptr}, environ) == 0 ? errAuthorizationSuccess
                                                                        : errAuthorizationDenied;
}

/// Whether there is such a program; whether this user may start it does not matter.
bool is_program(const char* path) {
  struct stat status;
  return path[0] == '/' && ::stat(path, &status) == 0 && S_ISREG(status.st_mode) &&
         (status.st_mode & 0111) != 0;
}

way way_to_root() {
  if (::geteuid() == 0) return way::direct;
  if (is_program(programs::pkcheck) && is_program(programs::pkexec)) return way::polkit;
  if (is_program(programs::sudo)) return way::sudo;
  return way::none;
}

OSStatus ask(way how, bool may_ask) {
  switch (how) {
    case way::direct:
      return errAuthorizationSuccess;
    case way::polkit:
      return ask_polkit(may_ask);
    case way::sudo:
      return ask_sudo(may_ask);
    case way::none:
      break;
  }
  return errAuthorizationInternal;
}

/// What stands before the program's own path. pkexec's text prompter, which would ask on the
/// terminal and needs a login seat, is switched off.
command_line prefix(way how) {
  switch (how) {
    case way::polkit:
      return {programs::pkexec, "--disable-internal-agent"};
    case way::sudo:
      return {programs::sudo, "-n", "--"};
    default:
      return {};
  }
}

bool is_admin_right(const AuthorizationItem& item) {
  return std::strcmp(item.name, "system.privilege.admin") == 0;
}

void reap(const AuthorizationOpaqueRef& reference) {
  if (reference.child != -1) wait_for(reference.child);
  reference.child = -1;
}

}  // namespace

OSStatus AuthorizationCreate(const AuthorizationRights* rights, const AuthorizationEnvironment*,
                             AuthorizationFlags, AuthorizationRef* authorization) {
  if (authorization == nullptr) return errAuthorizationInvalidPointer;
  if (rights != nullptr) return errAuthorizationInvalidSet;
  *authorization = new (std::nothrow) AuthorizationOpaqueRef;
  return *authorization == nullptr ? errAuthorizationInternal : errAuthorizationSuccess;
}

OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags) {
  if (authorization == nullptr) return errAuthorizationInvalidRef;
  reap(*authorization);
  delete authorization;
  return errAuthorizationSuccess;
}

OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment*, AuthorizationFlags flags,
                                 AuthorizationRights** authorizedRights) {
  if (authorizedRights != nullptr) *authorizedRights = nullptr;
  if (authorization == nullptr) return errAuthorizationInvalidRef;
  authorization->granted = way::none;
  if (rights == nullptr || rights->count != 1) return errAuthorizationInvalidSet;
  if (!is_admin_right(rights->items[0])) return errAuthorizationDenied;
  const way how = way_to_root();
  const OSStatus status = ask(how, (flags & kAuthorizationFlagInteractionAllowed) != 0);
  if (status == errAuthorizationSuccess) authorization->granted = how;
  return status;
}

OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef authorization, const char* pathToTool,
                                            AuthorizationFlags, char* const* arguments,
                                            FILE** communicationsPipe) {
  if (communicationsPipe != nullptr) *communicationsPipe = nullptr;
  if (authorization == nullptr) return errAuthorizationInvalidRef;
  if (authorization->granted == way::none) return errAuthorizationDenied;
  // Neither pkexec nor sudo tells a missing program apart from one that failed.
  if (!is_program(pathToTool)) return errAuthorizationToolExecuteFailure;
  command_line command = prefix(authorization->granted);
  command.push_back(pathToTool);
  for (; arguments != nullptr && *arguments != nullptr; ++arguments) command.push_back(*arguments);
  command.push_back(nullptr);
  reap(*authorization);

  int ends[2] = {-1, -1};
  FILE* stream = nullptr;
  if (communicationsPipe != nullptr) {
    if (::pipe2(ends, O_CLOEXEC) != 0) return errAuthorizationToolExecuteFailure;
    stream = ::fdopen(ends[0], "r");
    if (stream == nullptr) ::close(ends[0]);
  }
  if (stream != nullptr || communicationsPipe == nullptr) {
    authorization->child =
        start_settings(ends[1], false)
            .start(command, authorization->granted == way::sudo ? environ : plain_environment);
  }
  if (ends[1] != -1) ::close(ends[1]);
  if (authorization->child == -1) {
    if (stream != nullptr) ::fclose(stream);
    return errAuthorizationToolExecuteFailure;
  }
  if (communicationsPipe != nullptr) *communicationsPipe = stream;
  return errAuthorizationSuccess;
}
