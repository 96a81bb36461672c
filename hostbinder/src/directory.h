// The runtime directory ($HOSTBINDER_DIR): where service sockets and the declaration list live.
// Nothing in it is trusted unless this user made it: the directory must be a real directory of
// ours that nobody else can write, and the list must be a regular file.
#pragma once

#include <android/binder_status.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <string>

std::string runtimeDirectory();
// Empty when the directory can be trusted (it is made, owner-only, when missing); else why not.
std::string directoryProblem();
// The ownership and mode part of that check, on what fstat said about the directory.
std::string directoryProblemOf(const struct stat& st, uid_t user);
// True when the directory can be trusted; otherwise logs why (once per reason) and is false.
bool directoryTrusted();

// Whether `instance` is a line of the declaration list.
bool declaredInList(const std::string& instance);
// Adds `instance` to the declaration list unless it is there already.
binder_status_t addToDeclaredList(const std::string& instance);
