// What the runtime needs of AStatus beyond the NDK's own functions: the device's pruning of
// codes outside the NDK's lists, and a status as it arrives from the wire.
#pragma once

#include <android/binder_status.h>

// A transaction status outside the NDK's list becomes STATUS_UNKNOWN_ERROR, as libbinder_ndk's
// PruneStatusT makes it before any caller sees it.
binder_status_t pruneStatus(binder_status_t status);
// An exception code outside the NDK's list becomes EX_TRANSACTION_FAILED (PruneException).
binder_exception_t pruneException(int32_t exception);

// A status read from a reply, keeping the exception code as sent: the device keeps it too and
// prunes it only when asked for it, so an unknown code reads as EX_TRANSACTION_FAILED with no
// transaction error.
AStatus* statusFromWire(int32_t exception, int32_t serviceSpecific, const char* message);
