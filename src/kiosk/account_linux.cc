#include "kiosk/account_linux.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string_view>
#include <vector>

#include "core/log.h"
#include "core/text.h"
#include "core/units.h"
#include "device/process_linux.h"
#include "kiosk/account.h"

namespace Tarnvale::KioskService {
namespace {

constexpr std::size_t kPasswdBufferBytes = 16 * kKiB;
constexpr std::size_t kGroupBufferBytes = 64 * kKiB;
// The tool may install packages and set up a whole session.
constexpr std::int32_t kSetupToolTimeoutMs = 15 * kMinuteMs;
constexpr std::int32_t kGpasswdTimeoutMs = 15 * kSecondMs;
constexpr std::size_t kMaxDetailBytes = 800;

// What gives root's powers, or a way to them, on a Debian system.
constexpr const char* kAdminGroups[] = {"sudo", "wheel",  "admin",   "adm",  "lpadmin",
                                        "lxd",  "docker", "libvirt", "disk", "shadow"};

bool IsMember(const std::string& user, const char* groupName) {
  std::vector<char> buffer(kGroupBufferBytes);
  group entry = {};
  group* found = nullptr;
  if (::getgrnam_r(groupName, &entry, buffer.data(), buffer.size(), &found) != 0) return false;
  if (found == nullptr || found->gr_mem == nullptr) return false;
  for (char** member = found->gr_mem; *member != nullptr; ++member) {
    if (user == *member) return true;
  }
  return false;
}

void RemoveFromGroup(const std::string& user, const char* groupName) {
  const ProcResult run =
      RunProcess({FindTool("gpasswd"), "-d", user, groupName}, kGpasswdTimeoutMs);
  if (run.status == 0) {
    Log("<4>removed %s from %s\n", user.c_str(), groupName);
  } else {
    Log("<3>cannot remove %s from %s: %s\n", user.c_str(), groupName, Trim(run.output).c_str());
  }
}

}  // namespace

int LookupAccount(const std::string& user, unsigned int* uid, std::string* comment) {
  std::vector<char> buffer(kPasswdBufferBytes);
  passwd entry = {};
  passwd* found = nullptr;
  const int error = ::getpwnam_r(user.c_str(), &entry, buffer.data(), buffer.size(), &found);
  if (error != 0) {
    Log("<3>getpwnam(%s) failed (%s)\n", user.c_str(), std::strerror(error));
    return kAccountLookupFailed;
  }
  if (found == nullptr) return kAccountMissing;
  if (uid != nullptr) *uid = found->pw_uid;
  if (comment != nullptr) *comment = found->pw_gecos != nullptr ? found->pw_gecos : "";
  return kAccountFound;
}

bool RunSetupTool(const std::string& tool, bool enable, std::string* detail) {
  if (::access(tool.c_str(), X_OK) != 0) {
    *detail = tool + " is not installed";
    return false;
  }
  const char* const verb = enable ? "enable" : "disable";
  const ProcResult run = RunProcess({tool, verb, "--from-kioskd"}, kSetupToolTimeoutMs);
  *detail = Trim(run.output).substr(0, kMaxDetailBytes);
  if (run.status == 0) return true;
  Log("<3>%s %s exited %d: %s\n", tool.c_str(), verb, run.status, detail->c_str());
  return false;
}

void DropAdminGroups(const std::string& user) {
  for (const char* const groupName : kAdminGroups) {
    if (IsMember(user, groupName)) RemoveFromGroup(user, groupName);
  }
}

}  // namespace Tarnvale::KioskService
