#include "core/service.h"

namespace Tarnvale::KioskService {
namespace {

// Fixed after start.
Config serviceConfig;
Ops serviceOps;
bool serviceInstalled = false;

}  // namespace

const Config& ServiceConfig() {
  return serviceConfig;
}

const Ops& Platform() {
  return serviceOps;
}

bool ServiceInstalled() {
  return serviceInstalled;
}

void SetService(const Config& config, const Ops& ops) {
  serviceConfig = config;
  serviceOps = ops;
}

void SetServiceInstalled(bool installed) {
  serviceInstalled = installed;
}

}  // namespace Tarnvale::KioskService
