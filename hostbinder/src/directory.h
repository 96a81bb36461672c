// The runtime directory ($HOSTBINDER_DIR): where service sockets live. Nothing in it is trusted
// unless this user made it: the directory must be a real directory of ours that nobody else can
// write.
#pragma once

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
