#include "ui/screen_fixture.h"

#include <dlfcn.h>

#include "QUVA_DiagManager.h"
#include "QUVA_DiagResultManager.h"
#include "speech/voice.h"
#include "trevlin/trevlin_database.h"
#include "trevlin_engine.h"

// What would end the process, speak, or depend on this machine's network is taken over.
void speech::Say(const std::string& text, Kind kind) {
  g_said.push_back((kind == Kind::kFocus ? "focus: " : "") + text);
}
void elm_exit() {
  ++g_loopEnds;
}
void ui_app_exit() {
  ++g_applicationExits;
}
int connection_is_gateway_reachable(connection_h, bool* reachable) {
  *reachable = g_network;
  return CONNECTION_ERROR_NONE;
}

Ecore_Thread* ecore_thread_run(Ecore_Thread_Cb work, Ecore_Thread_Cb end, Ecore_Thread_Cb cancel, const void* data) {
  static const auto real = reinterpret_cast<decltype(&ecore_thread_run)>(dlsym(RTLD_NEXT, "ecore_thread_run"));
  if (!g_noThreads) return real(work, end, cancel, data);
  cancel(const_cast<void*>(data), nullptr);
  return nullptr;
}

int InferenceSubscribeOnce(unsigned long, InferenceCallback) {
  return 0;
}

namespace {

std::string Solution(const std::string& code, const std::string& steps) {
  return "<solution issue_code='" + code + "' sol_code='7' sol_type='2' view_authority='USER'>" + steps + "</solution>";
}

}  // namespace

void StoreRemaining(const std::map<std::string, std::string>& issues) {
  fs::copy_file(PARSER_PLUGIN, SystemPath(set_paths::kParserPlugin));
  CreateAPIInstance();
  std::string map;
  trevlin::Database database(trevlin::Database::Access::kReadWrite);
  for (const auto& [code, steps] : issues) {
    map += Solution(code, steps);
    database.AddTransition(
        {.time = "2024-03-07T09:05:00", .issueCode = std::stoi(code), .type = DT_TRANSITION_TYPE_TRUE});
  }
  WriteFile(set_paths::kSolutionMap, "<map><sminfo version='3'/><sm cnt='9'>" + map + "</sm></map>");
  QUVA::QUVA_DiagManager::GetInstance();  // reads it
  auto& results = *QUVA::QUVA_DiagResultManager::GetInstance();
  results.GetInferenceResult();
  results.SaveRemainingProblems();
  results.CleanDiagResult();
}
