#include "AppState.h"

namespace QUVA {

AppState& AppState::Instance() {
  static auto* instance = new AppState;
  return *instance;
}

}  // namespace QUVA
