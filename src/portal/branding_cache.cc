#include "portal/branding_cache.h"

#include <sys/stat.h>
#include <unistd.h>

#include <glib.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include "core/directories.h"
#include "core/log.h"
#include "core/service.h"

namespace Tarnvale::KioskService {
namespace {

// Anyone may enter: the kiosk user interface has no rights of its own.
constexpr mode_t kDirectoryMode = 0755;

const std::string& BrandingDir() {
  return ServiceConfig().brandingDir;
}

bool IsRegularFile(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISREG(status.st_mode);
}

// One name, without what may be inside it. What has vanished is as good as removed.
void RemovePath(const std::string& path) {
  struct stat status = {};
  int result = ::lstat(path.c_str(), &status);
  if (result == 0) {
    result = S_ISDIR(status.st_mode) ? ::rmdir(path.c_str()) : ::unlink(path.c_str());
  }
  if (result == 0 || errno == ENOENT) return;
  Log("<4>cannot remove %s (%s)\n", path.c_str(), std::strerror(errno));
}

// Collected first, because a directory must not change while it is read.
std::vector<std::string> NamesToRemove(const std::set<std::string>& keep) {
  std::vector<std::string> names;
  const std::unique_ptr<GDir, decltype(&g_dir_close)> directory(
      g_dir_open(BrandingDir().c_str(), 0, nullptr), &g_dir_close);
  if (directory == nullptr) return names;
  while (const gchar* const name = g_dir_read_name(directory.get())) {
    if (!keep.contains(name) || !IsRegularFile(BrandingPath(name))) names.emplace_back(name);
  }
  return names;
}

}  // namespace

std::string BrandingPath(const std::string& name) {
  return BrandingDir() + "/" + name;
}

bool BrandingPathExists() {
  struct stat status = {};
  return ::lstat(BrandingDir().c_str(), &status) == 0;
}

bool IsBrandingDirThere() {
  struct stat status = {};
  return ::lstat(BrandingDir().c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool PrepareBrandingDirLocked() {
  const std::string parent = ParentOf(BrandingDir());
  if (!parent.empty()) {
    MakeParentDirectories(ParentOf(parent));
    if (!PrepareDirectory(parent, kDirectoryMode, true)) return false;
  }
  return PrepareDirectory(BrandingDir(), kDirectoryMode, true);
}

void SweepBrandingDir(const std::set<std::string>& keep) {
  if (!IsBrandingDirThere()) return;
  for (const std::string& name : NamesToRemove(keep))
    RemovePath(BrandingPath(name));
}

void RemoveBranding(bool removeDir) {
  if (BrandingPathExists()) SweepBrandingDir({});
  if (removeDir || !IsBrandingDirThere()) RemovePath(BrandingDir());
}

}  // namespace Tarnvale::KioskService
