// The operations on network buffers, as one table of function pointers, so that a host may bring
// its own and share buffers with the runtime. `netbuf/netbuf.h` has them with types.
//
// A buffer is a sequence of bytes, kept as views on shared chunks (netbuf/chunk.h): bytes come and
// go at either end, and parts of it go to other buffers, without being copied.
//
// Ownership: who made a buffer or an iterator gives it back, by `destroy` and `delete_object`. Each
// slot says below what it takes over (the caller must not use it again), shares (adds a reference)
// or only reads.
// Threads: a buffer and its iterators belong to one thread at a time; chunks may be shared between
// buffers of different threads. A change to a buffer ends its iterators.
// Errors: counts below 1 are nothing to do, ranges are clipped to what there is. An operation that
// runs out of memory, or would give a buffer more than 2147483647 bytes, throws std::bad_alloc;
// its bytes are unchanged then (views may have been joined) and nothing was taken over.
#pragma once

/// By slot; "end" is an int, non-zero for the back of the buffer, zero for its front. Sizes, counts
/// and offsets are signed 32-bit; 2147483647 means all.
///
///  0 setup_default ()                          the caches' set-up with (false, true)
///  1 destroy (buffer)                          takes the buffer over, gives all references back
///  2 create () -> buffer                       a new, empty buffer
///  3 sub (buffer, offset, length) -> buffer    a new buffer that shares the range; a negative
///                                              offset counts as 0
///  4 size (buffer) -> int                      reads
///  5 add_shared (to, from, end)                shares all of `from`, which may be `to` itself: its
///                                              bytes then stand there twice
///  6 add_array (buffer, array, length, end)    takes over an array from `alloc_array`; with a
///                                              length below 1 it is freed at once
///  7 reserve (buffer, count, end) -> pointer   makes `count` writable bytes part of the buffer;
///                                              null for a count below 1
///  8 reserve_any (buffer, count, end, &pointer, &length)
///                                              the same with as many as are at hand, `count` where
///                                              none are; `drop` gives back what was not filled
///  9 pullup (buffer, &pointer, &length, wanted)
///                                              copies short views at the front together, and reads
///                                              the first one: a view of more than half of `wanted`
///                                              stays and ends that, so it may be far shorter
/// 10 drop (buffer, count, from_back)           removes bytes, gives references back
/// 11 read (buffer, destination, count, consume, from_back)
///                                              copies bytes out, removes them if `consume`
/// 12 placeholder1 (any) -> 0
/// 13 free_mem (pointer)                        the system's `free`
/// 14 delete_object (pointer)                   takes an iterator over; null is ignored
/// 15 iter_begin (buffer) -> iterator           at the first view
/// 16 iter_copy (iterator) -> iterator          at the same view
/// 17 iter_valid (iterator) -> bool             whether there is a view
/// 18 iter_get (iterator, &pointer, &length) -> length
///                                              reads; not at the end
/// 19 iter_next (iterator)
/// 20 alloc_array (count) -> array              null for a count below 1; `add_array` with length 0
///                                              gives one back unused
/// 21 placeholder2 (any) -> 0
/// 22 add_external_compact (as slot 25 without `compact`)
///                                              slot 25 with `compact` set; not in a host's reach
/// 23 find_byte (buffer, byte, limit) -> index  reads at most `limit` bytes; -1 if it is not there
/// 24 compare (buffer, bytes, count) -> int     reads; as memcmp, a tie goes to the longer one
/// 25 add_external (buffer, data, length, end, writable, release, context, compact)
///                                              takes `data` over until `release(context)`, once,
///                                              on the thread that gives the last reference back;
///                                              with a length below 1 that is at once. A view at
///                                              that end that fills half of its chunk or less is
///                                              copied first, also a shared or external one, whose
///                                              memory may so be released early
/// 26 move_buffer (to, from, end)               takes over all views of `from`, which is empty
///                                              then; into itself nothing moves
/// 27 setup_with (first)                        the set-up with (first, true)
/// 28 setup (first, use_cache)                  the set-up; only its first call counts
extern void* _netbuf_impl[29];
