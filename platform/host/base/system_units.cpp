#include "base/system_units.h"

std::optional<std::vector<SystemUnit>> AskUnits(SystemBus& bus, const char* const* names) {
  constexpr BusMethod kList = {"org.freedesktop.systemd1", "/org/freedesktop/systemd1",
                               "org.freedesktop.systemd1.Manager", "ListUnitsByNames", "(a(ssssssouso))"};
  const GVariantHandle reply = bus.Call(kList, g_variant_new("(^as)", names));
  if (!reply) return std::nullopt;
  std::vector<SystemUnit> units;
  GVariantIter* rows = nullptr;
  g_variant_get(reply.get(), "(a(ssssssouso))", &rows);
  const char *name, *load, *state, *object;
  guint32 job;
  while (g_variant_iter_next(rows, "(&s&s&s&s&s&s&ou&s&o)", &name, nullptr, &load, &state, nullptr, nullptr, &object,
                             &job, nullptr, nullptr))
    units.push_back({name, load, state, object, job != 0});
  g_variant_iter_free(rows);
  return units;
}
