#include "slots/support/private_bus.h"

#include <stdlib.h>

#include <gtest/gtest.h>

namespace Tarnvale::KioskService {
namespace {

std::string BusConfig(const std::string& address) {
  return "<busconfig>"
         "<listen>" +
         address +
         "</listen>"
         "<auth>EXTERNAL</auth>"
         "<policy context='default'>"
         "<allow user='*'/><allow own='*'/><allow send_destination='*'/><allow receive_sender='*'/>"
         "</policy>"
         "</busconfig>";
}

}  // namespace

PrivateBus::PrivateBus() : address_("unix:path=" + directory_.At("bus")) {
  EXPECT_EQ(::setenv("DBUS_SYSTEM_BUS_ADDRESS", address_.c_str(), 1), 0);
}

void PrivateBus::Start() {
  const std::string config = directory_.At("bus.conf");
  WriteText(config, BusConfig(address_));
  daemon_ = std::make_unique<Child>(std::vector<std::string>{
      "/usr/bin/dbus-daemon", "--config-file=" + config, "--nofork", "--print-address=1"});
  EXPECT_TRUE(daemon_->ReadLine().starts_with(address_)) << "no bus: is dbus-daemon installed?";
}

}  // namespace Tarnvale::KioskService
