#include <set>

#include "appfw/single_instance.h"
#include "fuzz.h"

/// What another program sends as the arguments of a request.
void FuzzOne(std::string_view bytes) {
  const GVariantHandle parameters(g_variant_ref_sink(
      g_variant_new_from_data(G_VARIANT_TYPE("(a{ss})"), bytes.data(), bytes.size(), FALSE, nullptr, nullptr)));
  std::set<std::string> names;
  for (const auto& [name, text] : app_framework::ReadExtras(*parameters)) {
    Promise(app_framework::IsExtraKey(name), "a name is one");
    Promise(names.insert(name).second, "names are unique");
  }
}
