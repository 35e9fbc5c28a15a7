#include "support/sanitizer_reports.h"

#include <dlfcn.h>
#include <link.h>

#include <cstdint>
#include <string>
#include <vector>

namespace Tarnvale::KioskService {
namespace {

constexpr char kSetReportFd[] = "__sanitizer_set_report_fd";
using SetReportFd = void (*)(void* fd);

int AddName(dl_phdr_info* info, std::size_t, void* names) {
  static_cast<std::vector<std::string>*>(names)->emplace_back(info->dlpi_name);
  return 0;
}

// The first one has no name: it is the program.
std::vector<std::string> LoadedLibraries() {
  std::vector<std::string> names;
  (void)::dl_iterate_phdr(AddName, &names);  // the callback never ends it early
  return names;
}

}  // namespace

// GCC's runtimes are a library each, and each has this function for itself: a plain call would
// reach AddressSanitizer's alone, and UndefinedBehaviorSanitizer went on as before.
void SendSanitizerReportsTo(int fd) {
  if (::dlsym(RTLD_DEFAULT, kSetReportFd) == nullptr) return;
  for (const std::string& name : LoadedLibraries()) {
    void* const library = ::dlopen(name.empty() ? nullptr : name.c_str(), RTLD_LAZY | RTLD_NOLOAD);
    if (library == nullptr) continue;
    const auto set = reinterpret_cast<SetReportFd>(::dlsym(library, kSetReportFd));
    if (set != nullptr) set(reinterpret_cast<void*>(static_cast<std::intptr_t>(fd)));
    (void)::dlclose(library);  // it was loaded before and stays so
  }
}

}  // namespace Tarnvale::KioskService
