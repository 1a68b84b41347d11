// Which file system holds a record file, so that files on network shares, where SQLite's
// shared-memory log (WAL) is not safe, get a rollback journal instead. Reading the system's mount
// table is the one platform-specific part; the rest is plain text handling.
#pragma once

#include <string>
#include <string_view>

namespace toverin::engine {

// The type of the file system holding `path` ("ext4", "nfs4", "fuse.sshfs" …) according to
// `mountInfo`, text in the form of Linux's /proc/self/mountinfo: the mount point that is the
// longest leading run of whole components of `path` (an absolute path) wins, the last one listed
// when several are mounted on the same point. Empty when no line applies.
std::string FileSystemTypeInMountInfo(std::string_view mountInfo, std::string_view path);

// Whether files of that type may be shared through a network or a user-space file system (NFS,
// SMB/CIFS, FUSE mounts, cluster file systems), where SQLite's shared-memory log is unsafe.
bool IsNetworkFileSystem(std::string_view type);

// The type of the file system holding `path` on this machine, empty when unknown. Linux reads
// /proc/self/mountinfo; elsewhere it answers empty (local).
std::string SystemFileSystemType(const std::string& path);

}  // namespace toverin::engine
