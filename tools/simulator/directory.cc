#include "simulator/directory.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "core/directories.h"
#include "core/files.h"
#include "core/log.h"
#include "json/json.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr mode_t kFileMode = 0644;
constexpr mode_t kSecretFileMode = 0600;
constexpr mode_t kProgramMode = 0755;
constexpr mode_t kStateDirMode = 0700;
constexpr std::size_t kMachineIdBytes = 16;

constexpr char kClientText[] =
    "#!/bin/sh\n"
    "# Stands for the stream client on a simulated terminal. Nothing starts it.\n";

// The peer is whoever develops against the simulator, never an installed client.
std::string FirstState() {
  Json state = Json::Object();
  state.Set("DevAllowAnyCaller", 1);
  return state.Dump();
}

// 32 hexadecimal digits and a line feed, as on a real system; empty without random bytes.
std::string MakeMachineId() {
  std::array<unsigned char, kMachineIdBytes> bytes;
  if (::getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size())) return {};
  std::string text;
  for (const unsigned char byte : bytes) {
    char digits[3];
    (void)std::snprintf(digits, sizeof digits, "%02x", byte);  // always two
    text += digits;
  }
  return text + "\n";
}

bool Exists(const std::string& path) {
  struct stat status = {};
  return ::lstat(path.c_str(), &status) == 0;
}

bool WriteIfMissing(const std::string& path, const std::string& text, mode_t mode) {
  return Exists(path) || WriteFileAtomic(path, text, mode);
}

bool MakeDirectory(const std::string& path) {
  std::error_code error;
  std::filesystem::create_directories(path, error);
  if (!error) return true;
  Log("<3>simulator: cannot make %s (%s)\n", path.c_str(), error.message().c_str());
  return false;
}

Descriptor TakeDirectory(const std::string& path) {
  Descriptor directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (directory.IsOpen() && ::flock(directory.Get(), LOCK_EX | LOCK_NB) == 0) return directory;
  Log("<3>simulator: cannot use %s (%s)\n", path.c_str(),
      errno == EWOULDBLOCK ? "another simulator does" : std::strerror(errno));
  return {};
}

// A client that was named on the command line is the caller's own business.
bool WriteClient(const Options& options) {
  const std::string ours = options.dir + "/client";
  return options.config.client != ours || WriteIfMissing(ours, kClientText, kProgramMode);
}

bool WriteFirstState(const Config& config) {
  return KioskService::PrepareDirectory(config.stateDir, kStateDirMode, true) &&
         WriteIfMissing(config.stateDir + "/state.json", FirstState(), kSecretFileMode);
}

bool Fill(const Options& options) {
  return WriteIfMissing(options.config.machineIdPath, MakeMachineId(), kFileMode) &&
         WriteClient(options) && WriteFirstState(options.config);
}

}  // namespace

Descriptor PrepareDirectory(const Options& options) {
  if (!MakeDirectory(options.dir)) return {};
  Descriptor directory = TakeDirectory(options.dir);
  if (!directory.IsOpen() || !Fill(options)) return {};
  return directory;
}

void EmptyRunDirectory(const Config& config) {
  for (const char* const name : {"/kiosk-maintenance", "/kiosk-presence.json"})
    (void)::unlink((config.runDir + name).c_str());  // gone is what is wanted
}

}  // namespace Tarnvale::KioskService::Simulator
