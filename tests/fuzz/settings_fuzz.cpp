#include "settings/settings_store.h"

#include "fuzz.h"
#include "fuzz_files.h"
#include "set_paths.h"

namespace {

constexpr char kKey[] = "memory/fuzz";

}  // namespace

/// The first part is the name of a file, the rest what a key's file holds.
void FuzzOne(std::string_view bytes) {
  const std::string key = settings::KeyOfFileName(TakePart(bytes));
  Promise(key.empty() || !settings::KeyProblem(key), "a file's name stands for a key that can be one");
  WriteFile(set_paths::kVolatileSettingsDir + std::string("/memory%2Ffuzz"), bytes);
  settings::Value value, again;
  std::string error;
  const auto read = settings::Read(kKey, value, error);
  Promise(read != settings::ReadResult::kNotSet, "the key is set");
  Promise((read == settings::ReadResult::kFailed) == !error.empty(), "a failure has a reason");
  if (read == settings::ReadResult::kFailed) return;
  const auto same = settings::FromText(settings::TypeName(value), settings::ToText(value));
  Promise(same && settings::ToText(*same) == settings::ToText(value), "what is read can be written and read again");
}
