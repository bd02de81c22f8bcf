#include "flag/elevated.h"

#include <cstdlib>

#include "flag/authorization.h"
#include "flag/system.h"
#include "mirt/diag/exception.h"
#include "mirt/sys/files.h"
#include "mirt/sys/immortal.h"

namespace flag {
namespace {

/// An authorisation that goes, with its rights, at the end of its scope.
class authorization {
 public:
  explicit authorization(AuthorizationRef ref) : ref_(ref) {}
  ~authorization() { ::AuthorizationFree(ref_, kAuthorizationFlagDestroyRights); }
  authorization(const authorization&) = delete;
  authorization& operator=(const authorization&) = delete;

  /// Asks the user for an administrator's consent.
  bool acquire() {
    static char name[] = "system.privilege.admin";
    AuthorizationItem item = {name, 0, nullptr, 0};
    const AuthorizationRights rights = {1, &item};
    constexpr AuthorizationFlags flags = kAuthorizationFlagInteractionAllowed |
                                         kAuthorizationFlagExtendRights |
                                         kAuthorizationFlagPreAuthorize;
    return ::AuthorizationCopyRights(ref_, &rights, nullptr, flags, nullptr) == 0;
  }

  /// Runs a program with one argument as administrator and waits until it closes its output, that
  /// is until it ends. Whether it could be started.
  bool run(const std::string& tool, std::string argument) {
    char* const arguments[] = {argument.data(), nullptr};
    FILE* pipe = nullptr;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    // Old on macOS, and kept: it is the only call there that needs no installed helper. What has to
    // stand guard: the tool checks its whole argument, and whoever installs it puts it where only
    // an administrator writes.
    const OSStatus status = ::AuthorizationExecuteWithPrivileges(
        ref_, tool.c_str(), kAuthorizationFlagDefaults, arguments, &pipe);
#pragma GCC diagnostic pop
    if (pipe != nullptr) {
      char ignored[8192];
      while (status == 0 && ::fread(ignored, 1, sizeof ignored, pipe) != 0) {
      }
      ::fclose(pipe);
    }
    return status == 0;
  }

 private:
  const AuthorizationRef ref_;
};

/// Runs the tool with administrator rights. Whether it could be started; with that it counts as
/// done, its exit status is not seen.
bool start_tool(const std::string& serialized) {
  AuthorizationRef ref = nullptr;
  if (::AuthorizationCreate(nullptr, nullptr, kAuthorizationFlagInteractionAllowed, &ref) != 0) {
    return false;
  }
  authorization admin(ref);
  if (!admin.acquire()) return false;

  const std::string tool = mirt::dirname(mirt::get_exe_path()) + "/store_product_flags";
  // Makes the tool executable, with the caller's own rights; where it belongs to someone else this
  // fails, and is not needed.
  [[maybe_unused]] const int ignored =
      ::system(("chmod 0700 " + mirt::quote_cmdline_unix(tool)).c_str());
  return admin.run(tool, serialized);
}

class proxy_storage final : public item_storage_ex_api {
 public:
  void put(const std::string& key, item_api* item) override { inner_->put(key, item); }
  int get(const std::string& key) override { return inner_->get(key); }

  std::string save() override {
    std::string serialized = inner_->save();
    if (!serialized.empty() && !start_tool(serialized)) throw mirt::exception::function("save");
    return serialized;
  }

  void load(init_item_api* registry, const std::string& serialized) const override {
    inner_->load(registry, serialized);
  }

 private:
  item_storage_ex_api* const inner_ = create_cgi();
};

}  // namespace

item_storage_ex_api* create_elevate() {
  return mirt::immortal<proxy_storage>();
}

void store_elevated(const char* serialized) {
  create_elevate()->load(mirt_flag_init_system(), serialized);
}

}  // namespace flag
