// The state file: whatever stands in it, the service comes up with a document.

#include <filesystem>
#include <fstream>

#include "core/service.h"
#include "core/state.h"
#include "target.h"

namespace Tarnvale::KioskService {
namespace {

// A directory for the file, gone with the process unless that dies.
class StateDirectory {
 public:
  StateDirectory() : path_(std::filesystem::temp_directory_path() / "fuzz-state-XXXXXX") {
    Expect(::mkdtemp(path_.data()) != nullptr, "there is a directory for temporary files");
    Config config;
    config.stateDir = path_;
    SetService(config, Ops());
  }
  ~StateDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  StateDirectory(const StateDirectory&) = delete;
  StateDirectory& operator=(const StateDirectory&) = delete;

  void Write(const std::string& text) const {
    std::ofstream(path_ + "/state.json", std::ios::binary) << text;
  }

 private:
  std::string path_;
};

void CheckMember(const Json& written, const char* key) {
  const Json& member = written.Get(key);
  Expect(StateGetString(key) == (member.IsString() ? member.text : ""), "only text is a text");
  Expect(StateGetInt(key) == (member.IsNumber() ? member.AsInt(0) : 0), "only a number is one");
}

}  // namespace
}  // namespace Tarnvale::KioskService

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace Tarnvale::KioskService;
  static const StateDirectory directory;
  directory.Write(TextOf(data, size));
  StateLoad();
  const Json written = ValueOf(data, size);
  for (const char* key : {StateKey::kDeviceToken, StateKey::kProvisioned, StateKey::kSignIn})
    CheckMember(written, key);
  return 0;
}
