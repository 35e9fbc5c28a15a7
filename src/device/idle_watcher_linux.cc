#include "device/idle_watcher_linux.h"

#include <signal.h>
#include <sys/stat.h>

#include <glib.h>

#include <cstdlib>
#include <memory>

#include "core/files.h"
#include "core/text.h"
#include "kiosk/account.h"
#include "kiosk/account_linux.h"

namespace Tarnvale::KioskService {
namespace {

constexpr char kIdleWatcher[] = "swayidle";
constexpr int kDecimal = 10;

struct DirectoryClose {
  void operator()(GDir* directory) const {
    g_dir_close(directory);
  }
};
using Directory = std::unique_ptr<GDir, DirectoryClose>;

bool IsOwnedBy(const std::string& path, unsigned int uid) {
  struct stat status = {};
  return ::stat(path.c_str(), &status) == 0 && status.st_uid == uid;
}

bool IsIdleWatcher(const std::string& processPath) {
  return Trim(ReadWholeFile(processPath + "/comm")) == kIdleWatcher;
}

void StopIfIdleWatcher(const std::string& name, unsigned int uid) {
  const long pid = std::strtol(name.c_str(), nullptr, kDecimal);
  if (pid <= 0) return;  // not everything in /proc is a process
  const std::string path = "/proc/" + name;
  if (!IsOwnedBy(path, uid) || !IsIdleWatcher(path)) return;
  (void)::kill(static_cast<pid_t>(pid), SIGTERM);  // one that is gone by now needs no signal
}

}  // namespace

void StopIdleWatchers(const std::string& user) {
  unsigned int uid = 0;
  if (LookupAccount(user, &uid, nullptr) != kAccountFound) return;
  const Directory processes(g_dir_open("/proc", 0, nullptr));
  if (processes == nullptr) return;
  while (const char* const name = g_dir_read_name(processes.get())) {
    StopIfIdleWatcher(name, uid);
  }
}

}  // namespace Tarnvale::KioskService
