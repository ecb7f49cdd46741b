#include "x_outputs.h"

#include <xcb/randr.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "c_handle.h"

namespace tools {

namespace {

using display::Connector;
using display::Mode;

using Server = std::unique_ptr<xcb_connection_t, CRelease<&xcb_disconnect>>;
template <typename Answer>
using Reply = std::unique_ptr<Answer, CRelease<&std::free>>;

constexpr uint32_t kEdidWords = 64 * 32;  // of four bytes; more than any screen has

struct Output {
  std::string name;
  std::string edid;
  Mode mode;
};

Mode ModeOf(const xcb_randr_mode_info_t& info) {
  Mode mode{{info.width, info.height}};
  mode.isInterlaced = (info.mode_flags & XCB_RANDR_MODE_FLAG_INTERLACE) != 0;
  const double dots =
      static_cast<double>(info.htotal) * info.vtotal * (info.mode_flags & XCB_RANDR_MODE_FLAG_DOUBLE_SCAN ? 2 : 1);
  if (dots > 0) mode.rate = info.dot_clock / dots * (mode.isInterlaced ? 2 : 1);
  return mode;
}

xcb_atom_t AtomOf(xcb_connection_t* server, const std::string& name) {
  const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
      server, xcb_intern_atom(server, 1, static_cast<uint16_t>(name.size()), name.c_str()), nullptr));
  return reply ? reply->atom : static_cast<xcb_atom_t>(XCB_ATOM_NONE);
}

std::string EdidOf(xcb_connection_t* server, xcb_randr_output_t output, xcb_atom_t property) {
  const Reply<xcb_randr_get_output_property_reply_t> reply(xcb_randr_get_output_property_reply(
      server, xcb_randr_get_output_property(server, output, property, XCB_ATOM_ANY, 0, kEdidWords, 0, 0), nullptr));
  if (!reply || reply->format != 8) return "";
  return {reinterpret_cast<const char*>(xcb_randr_get_output_property_data(reply.get())), reply->num_items};
}

/// The mode of this number.
const xcb_randr_mode_info_t* FindMode(const xcb_randr_get_screen_resources_current_reply_t& resources, uint32_t id) {
  const auto* const modes = xcb_randr_get_screen_resources_current_modes(&resources);
  const auto* const end = modes + xcb_randr_get_screen_resources_current_modes_length(&resources);
  const auto* const found = std::find_if(modes, end, [id](const auto& mode) { return mode.id == id; });
  return found == end ? nullptr : found;
}

std::vector<Output> OutputsOf(xcb_connection_t* server) {
  std::vector<Output> found;
  const auto screens = xcb_setup_roots_iterator(xcb_get_setup(server));
  const auto* const extension = xcb_get_extension_data(server, &xcb_randr_id);
  if (screens.rem == 0 || !extension || !extension->present) return found;
  // A server speaks the version that it was asked for.
  const Reply<xcb_randr_query_version_reply_t> version(
      xcb_randr_query_version_reply(server, xcb_randr_query_version(server, 1, 3), nullptr));
  const Reply<xcb_randr_get_screen_resources_current_reply_t> resources(xcb_randr_get_screen_resources_current_reply(
      server, xcb_randr_get_screen_resources_current(server, screens.data->root), nullptr));
  if (!version || !resources) return found;
  const xcb_atom_t edid = AtomOf(server, "EDID");
  const auto* const outputs = xcb_randr_get_screen_resources_current_outputs(resources.get());
  for (int i = 0; i < xcb_randr_get_screen_resources_current_outputs_length(resources.get()); ++i) {
    const Reply<xcb_randr_get_output_info_reply_t> about(xcb_randr_get_output_info_reply(
        server, xcb_randr_get_output_info(server, outputs[i], resources->config_timestamp), nullptr));
    if (!about || about->crtc == XCB_NONE) continue;
    const Reply<xcb_randr_get_crtc_info_reply_t> shown(xcb_randr_get_crtc_info_reply(
        server, xcb_randr_get_crtc_info(server, about->crtc, resources->config_timestamp), nullptr));
    const auto* const mode = shown ? FindMode(*resources, shown->mode) : nullptr;
    if (!mode) continue;
    found.push_back({{reinterpret_cast<const char*>(xcb_randr_get_output_info_name(about.get())),
                      static_cast<size_t>(xcb_randr_get_output_info_name_length(about.get()))},
                     edid == XCB_ATOM_NONE ? "" : EdidOf(server, outputs[i], edid),
                     ModeOf(*mode)});
  }
  return found;
}

bool IsKnown(const Connector& connector) {
  return connector.isConnected != true || connector.mode;
}

}  // namespace

void TakeModesOfX(std::vector<Connector>& connectors) {
  const char* const name = std::getenv("DISPLAY");
  if (!name || !*name) return;
  if (!connectors.empty() && std::all_of(connectors.begin(), connectors.end(), IsKnown)) return;
  const Server server(xcb_connect(nullptr, nullptr));
  if (xcb_connection_has_error(server.get())) return;
  const bool isAlone = connectors.empty();
  for (Output& output : OutputsOf(server.get())) {
    // Two displays of a kind may describe themselves alike.
    const auto isIts = [&](const Connector& each) {
      return !each.mode && !output.edid.empty() && each.edid == output.edid;
    };
    if (const auto at = std::find_if(connectors.begin(), connectors.end(), isIts); at != connectors.end())
      at->mode = output.mode;
    if (!isAlone) continue;
    Connector connector{std::move(output.name), true, {}, output.mode};
    connector.isForViewers = false;
    connector.isShowing = true;
    connectors.push_back(std::move(connector));
  }
}

}  // namespace tools
