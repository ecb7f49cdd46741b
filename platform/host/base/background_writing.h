#pragma once
/// @file
/// The log and the settings keys of a program whose main thread may not wait for the disk.

/// From now on the log and the settings keys that are set in this process are written on its writer thread. Forked
/// children write directly, as all other programs do. Main thread.
void BeginBackgroundWriting();
/// Writes what waits, for two seconds at most, and from then on directly again; so does an end by exit() or from
/// main(), while who ends with _exit() calls it before. Main thread.
void EndBackgroundWriting();
/// Any thread.
bool IsWritingInBackground();
