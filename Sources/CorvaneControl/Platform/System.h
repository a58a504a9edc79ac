#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

/// What the library and the programs ask of the system where the systems differ, or where the
/// answer takes more than a call; what POSIX settles is called where it is needed. SystemPOSIX.cpp
/// holds what the systems share, SystemLinux.cpp and SystemDarwin.cpp the rest; the build picks, so
/// that no other file asks which system it runs on.
namespace CorvaneControl::System {

/// The value of an environment variable, invalid UTF-8 repaired; absent when it is not set.
std::optional<std::string> environmentValue(std::string_view name);

/// The user's home folder: "HOME" when set and not empty, else the user database's entry; absent
/// when neither names one. On Linux the database is /etc/passwd alone: asking a directory service
/// would load shared libraries into a static program.
std::optional<std::string> homeFolder();

/// The folder that holds the applications' own folders: "~/Library/Application Support". On a
/// system other than macOS where that folder does not exist, "$XDG_DATA_HOME" (when set and
/// absolute, with a home folder or without), else "~/.local/share". Absent when it would lie in a
/// home folder and there is none.
std::optional<std::string> applicationSupportFolder();

/// The running executable's path with symbolic links resolved; absent when the system can't tell.
std::optional<std::string> executablePath();

/// The absolute path of the current folder, byte for byte and however long; absent when the folder
/// is gone, or when one above it that is needed to tell may not be read.
std::optional<std::string> currentFolder();

/// Makes read-only what the linker wanted to be so once the program runs (PT_GNU_RELRO), where
/// neither a loader nor the C library has. For the start of a program.
void protectConstants();

/// Occupies the standard descriptors (0, 1, 2) that are closed, with the null device or else with a
/// file that cannot be written, so that nothing that is opened later takes the place of one. False
/// and `errno` when one of them stays closed.
bool occupyStandardDescriptors();

/// The text of a system error number, such as "Connection refused".
std::string errorText(int code);

/// The double that a JSON number stands for, correctly rounded; absent when it is beyond the range
/// of a double, or too small to be told from zero.
std::optional<double> readDouble(std::string_view number);

/// A new stream socket of the Unix domain, closed on exec; -1 and `errno` at failure. The caller
/// owns the descriptor.
int openStreamSocket();

/// Accepts a connection, closed on exec; -1 and `errno` at failure. The caller owns the descriptor.
int acceptConnection(int listener);

/// Sets the option that keeps a broken pipe on this socket from raising a signal, where the system
/// has such an option.
void disableBrokenPipeSignal(int socket);

/// write(2) on a descriptor of any kind, except that on a socket whose option
/// `disableBrokenPipeSignal` has set a peer that went away gives EPIPE and never a signal.
ssize_t write(int descriptor, const void* bytes, std::size_t count) noexcept;

/// Whether a descriptor is of a FIFO: unlike a pipe it has a name, so that somebody who opens it
/// may come to read it when nobody does. False when the system can't tell.
bool isFIFO(int descriptor);

/// The effective user of a connected socket's other end; absent for every other descriptor, and
/// when the system can't tell.
std::optional<uid_t> peerUser(int socket);

/// Sets the address's family and, where the system has one, its length field; gives the length to
/// pass along with the address.
socklen_t completeAddress(sockaddr_un& address);

/// Whether a copy of a file has the file's group, or another one.
enum class Group : std::uint8_t { same, other };

/// Gives the file `to` the access control list and the user's extended attributes of the file
/// `from`, and no others; 0, or -1 and `errno` at failure. Where the file system has no such thing
/// there is nothing to do.
///
/// `permissions` are those of `from`, and become those that `to` is to get. With another group they
/// and the list are narrowed, so that neither that group's members nor those of the former one, who
/// are now among the others, may do more than before.
int copyFileAttributes(int from, int to, Group group, mode_t& permissions);

/// fsync(2), except that it goes down to the medium where fsync stops at the drive.
int syncToDisk(int descriptor);

/// Private memory of at least `size` bytes, all zero, in large pages where the system offers them;
/// null when there is none. The caller gives it back with `unmapMemory`.
char* mapMemory(std::size_t size);
/// The same memory with more room behind it, perhaps elsewhere; null when there is none, and
/// `memory` then stays as it was. `size` is what it was mapped with.
char* growMemory(char* memory, std::size_t size, std::size_t grown);
void unmapMemory(char* memory, std::size_t size);

}  // namespace CorvaneControl::System
