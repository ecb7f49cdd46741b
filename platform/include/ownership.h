#pragma once
/// @file
/// Whose a file or folder is, and opening what other users of the machine can get at: the exchange folders.
/// docs/architecture.md has who may read what.
///
/// A user is trusted who is this process's, root, or the owner of the set: of set_paths::kOwnerHome.
///
/// Thread rule: callable from any thread. Nothing here waits for anybody, but once a second for an owner's home that is
/// on a disk that hangs: who that is, is not known then. Paths are of the set.

#include <sys/types.h>

#include <string>

#include "c_handle.h"

bool IsTrustedUser(uid_t user);

/// What root makes for the set belongs to the set's owner, so that both can use it. Done by root alone.
void GiveToSetOwner(int fd);

/// Sees to it that a database is its owner's alone (0600): makes the file, empty, where there is none, and takes away
/// wider permissions where they are this user's to change. What cannot be done is left to who opens it. A file that is
/// there is not opened: to close it would take the locks of this process's other handles.
void KeepPrivate(const std::string& path);

/// The folders through which programs ask each other for something (set_paths::kTager, …).
namespace exchange {

/// Opens the folder (O_PATH), when each one on the way from the set root to it is a folder, no link, of a trusted user,
/// and nobody else may write in it but with the sticky bit set (the group may where the machine's own folders, as /tmp,
/// let it). Else no handle; errno tells why, as WhyNot() explains it, and `problem` names what is wrong and says so.
FdHandle OpenFolder(const std::string& path, std::string& problem);

/// As OpenFolder(), and makes what is missing (0755, the set owner's). Others' right to write in a folder of ours goes;
/// what a stranger has put in its place gets another name where that is permitted, which `problem` tells along with the
/// handle.
FdHandle MakeFolder(const std::string& path, std::string& problem);

/// Opens a file in such a folder with `flags`, and those that keep it from waiting and from following a link; a new one
/// gets the process's default mode. Without a handle errno tells why, as WhyNot() explains it: also when it is no
/// regular file, not a trusted user's, or, to be written, has a second name. With O_PATH it only looks.
FdHandle OpenFile(const std::string& path, int flags);

/// Why something is not used, in English: what errno says after the functions above.
const char* WhyNot(int error);

}  // namespace exchange
