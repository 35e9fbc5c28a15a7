#include "kioskctl/identity.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Tarnvale::KioskService::Kioskctl {
namespace {

gid_t GroupOf(uid_t uid) {
  const passwd* const entry = ::getpwuid(uid);
  return entry != nullptr ? entry->pw_gid : uid;
}

bool IsUser(uid_t uid) {
  return ::getuid() == uid && ::geteuid() == uid;
}

// Nobody else gets root's rights back once they are given up.
bool MayReturnToRoot(uid_t uid) {
  return uid != 0 && ::setuid(0) == 0;
}

}  // namespace

bool BecomeUser(std::uint32_t uid, std::string& problem) {
  if (IsUser(uid)) return true;
  const gid_t group = GroupOf(uid);
  if (::setgroups(0, nullptr) != 0 || ::setgid(group) != 0 || ::setuid(uid) != 0) {
    problem = "cannot become user " + std::to_string(uid) + ": " + std::strerror(errno);
    return false;
  }
  if (IsUser(uid) && !MayReturnToRoot(uid)) return true;
  problem = "did not become user " + std::to_string(uid);
  return false;
}

}  // namespace Tarnvale::KioskService::Kioskctl
