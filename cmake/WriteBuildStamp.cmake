# Writes the C++ file OUTPUT that defines the build stamp; run by kiosk_add_build_stamp.
string(TIMESTAMP stamp "%Y-%m-%d-%H%M" UTC)
file(WRITE ${OUTPUT} "#include \"core/build_stamp.h\"

namespace Tarnvale::KioskService {

const char kBuildStamp[] = \"${stamp}\";

}  // namespace Tarnvale::KioskService
")
