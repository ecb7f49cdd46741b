#pragma once
/// @file
/// The set's screen saver, for the application that is showing.
///
/// On a Linux desktop this is the session's own (org.freedesktop.ScreenSaver on the session bus), which comes by the
/// desktop's settings. There is no asking it for a certain picture or time: `id`, `type`, `timeout`, `priority` and
/// `mode` change nothing there. What can be asked is that it does not come.
///
/// Thread rule: any thread, one call at a time. A call waits at most half a second for the service, and starts neither
/// a bus nor a service.

extern "C" {

/// Asks for the screen saver `id` after `timeout` seconds without a key; `type`, `priority` and `mode` are passed on as
/// they are. On a desktop: lets the session's screen saver come again, where deactivateScreenSaver() kept it away.
/// Returns 0, or -1 when there is no screen saver here; the platform log says why.
int activateScreenSaver(const char* id, int type, int timeout, int priority, int mode);

/// Withdraws that: no screen saver until the next activation or the end of the process. Returns 0, or -1 when nothing
/// was activated or the service is no longer there.
int deactivateScreenSaver(void);
}
