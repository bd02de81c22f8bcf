// The machine-wide flags of the product.
//
// Ownership: the registry lives until the process ends.
// Threads: the first call must not be raced; the registry itself may be used from any thread.
#pragma once

#include "flag/item.h"

/// The registry over the machine-wide store. The first call creates it, reads the stored flags and
/// registers the statically declared ones.
flag::init_item_api* mirt_flag_init_system();
