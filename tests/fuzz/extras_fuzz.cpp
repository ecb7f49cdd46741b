#include "appfw/single_instance.h"
#include "fuzz.h"

/// What another program sends as the arguments of a request.
void FuzzOne(std::string_view bytes) {
  const GVariantHandle parameters(g_variant_ref_sink(
      g_variant_new_from_data(G_VARIANT_TYPE("(a{ss})"), bytes.data(), bytes.size(), FALSE, nullptr, nullptr)));
  const app_framework::Extras extras = app_framework::ReadExtras(*parameters);
  for (size_t i = 0; i < extras.size(); ++i) {
    Promise(app_framework::IsExtraKey(extras[i].first), "a name is one");
    Promise(i == 0 || extras[i].first != extras[i - 1].first, "names are unique");
  }
}
