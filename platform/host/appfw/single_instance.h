#pragma once
/// @file
/// One instance of an application for each set root, by a well-known name on the session bus. docs/launching.md has
/// the names and the interface.
///
/// Without a bus, with one that does not answer within two seconds or that ends later, the application runs all the
/// same; a line in the platform log then says that forwarding is off. A bus is never started.
///
/// Thread rule: main thread. Requests arrive there too, by the GLib default context.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "appfw/app_control.h"
#include "base/glib_handle.h"

namespace app_framework {

/// The extras that another start sends: the arguments of the method, a dictionary of texts. A name that cannot be one
/// is left out; of two that are the same the last counts.
Extras ReadExtras(GVariant& parameters);

class SingleInstance {
 public:
  enum class Role {
    kInstance,   ///< this process is the instance, or there is no telling
    kForwarded,  ///< another one has the request
    kNoAnswer,   ///< another one is there and did not take the request in time
  };

  /// Tells the start that forwarded a request, which waits for it, whether the request is delivered. Once, and not
  /// after the end of the SingleInstance.
  using Answer = std::function<void(bool delivered)>;
  /// Takes a request that another start forwarded.
  using RequestHandler = std::function<void(Extras, Answer)>;

  explicit SingleInstance(std::string applicationId) : m_applicationId(std::move(applicationId)) {}
  SingleInstance(const SingleInstance&) = delete;
  SingleInstance& operator=(const SingleInstance&) = delete;
  ~SingleInstance();

  /// Becomes the instance, whose forwarded requests `handler` then takes, or hands `request` to the one there is.
  /// Blocks for at most two seconds for an answer of the bus, and thirty for the instance's, which may be just starting
  /// or have another request to end first.
  Role Settle(const std::string& busAddress, const Extras& request, RequestHandler handler);

  /// The next start becomes an instance of its own; the handler is still asked for requests that are on their way.
  void GiveUpName();

 private:
  /// How forwarding a request went.
  enum class Outcome { kDone, kInstanceGone, kNoAnswer, kBusFailed };

  std::string InstanceName() const;
  std::string ObjectPath() const;
  bool Connect(const std::string& address);
  bool Export();
  /// Whether the name is ours now; nothing when the bus failed.
  std::optional<bool> RequestName();
  Outcome Forward(const Extras& request);
  Role RunAlone(const std::string& reason);
  void Disconnect();

  static void OnMethodCall(GDBusConnection*, const char* sender, const char* path, const char* interface,
                           const char* method, GVariant* parameters, GDBusMethodInvocation* invocation, void* self);
  static void OnClosed(GDBusConnection*, gboolean byPeer, GError* error, void* self);

  const std::string m_applicationId;
  GObjectHandle<GDBusConnection> m_connection;
  RequestHandler m_handler;
  std::string m_problem;
  unsigned int m_object = 0;
  unsigned long m_closedHandler = 0;
  bool m_ownsName = false;
};

}  // namespace app_framework
