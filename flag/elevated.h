// The way from an ordinary user's settings to the machine-wide store, which only an administrator
// can write: the user's side starts the tool `store_product_flags`, the tool's side applies.
//
// Ownership: stores live until the process ends.
// Threads: an elevated store belongs to one thread at a time.
#pragma once

#include "flag/storage.h"

namespace flag {

/// Collects settings in memory; `save` asks the user for an administrator's consent, starts the
/// tool that lies beside the running executable with the settings as its one argument, waits for
/// its end and returns the string. With nothing pending it returns "" and asks nobody. Throws
/// ":Error in 'save'" when consent or the start is refused; the settings are forgotten all the
/// same. The tool's exit status is not seen.
item_storage_ex_api* create_elevate();

/// Applies a settings string to the machine-wide flags. Throws ":Error in 'load'" if any part of it
/// is malformed; nothing is applied then.
void store_elevated(const char* serialized);

}  // namespace flag
