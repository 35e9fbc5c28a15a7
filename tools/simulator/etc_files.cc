// The files that the kiosk session's environment is made of: power.env and proxy.env.

#include "core/directories.h"
#include "core/files.h"
#include "simulator/slots.h"

namespace Tarnvale::KioskService::Simulator {
namespace {

constexpr mode_t kEtcDirMode = 0755;

}  // namespace

void WriteEtcFile(const std::string& etcDir, const std::string& name, const std::string& text) {
  if (!PrepareDirectory(etcDir, kEtcDirMode, false)) return;
  (void)WriteIfChanged(etcDir + "/" + name, text);  // the writer has logged a failure
}

}  // namespace Tarnvale::KioskService::Simulator
