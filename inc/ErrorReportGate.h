#pragma once

namespace QUVA {

/// Whether the error report can be opened: it needs the network and the viewer's consent to the content terms.
enum class ErrorReportGate { kOpen, kNoNetwork, kNoConsent };

/// Asks the set anew each time, for the consent only with the network there; the log has the answers. `occasion` goes
/// into the line about the network, `connected` is a line of its own after it when there is one. Any thread.
ErrorReportGate CheckErrorReportGate(const char* occasion = "", const char* connected = nullptr);

}  // namespace QUVA
