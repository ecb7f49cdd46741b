#pragma once
/// @file
/// The resolution of the screens of this process's session.
///
/// Thread rule: callable from any thread; blocks, ten seconds at most.

#include <string>

/// Gives each screen that shows fewer pixels than it prefers the resolution that it prefers, until the session ends or
/// somebody chooses another. X servers alone let a program do so. False, with all as it was and the reason in
/// `problem`: Wayland, no X server, none shows too little, the graphics card refuses.
bool ShowBestResolution(std::string& problem);
