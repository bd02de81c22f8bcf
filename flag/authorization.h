// Administrator rights from the operating system: four functions of macOS's Security framework
// with their records and constants. Elsewhere the same are declared here, after the published
// signatures, and authorization_linux.cpp supplies them.
//
// Ownership: a reference from AuthorizationCreate is given back by AuthorizationFree; a stream from
// AuthorizationExecuteWithPrivileges is closed by the caller.
// Threads: one reference belongs to one thread at a time.
#pragma once

#ifdef __APPLE__

#include <Security/Authorization.h>

#else

#include <cstddef>
#include <cstdint>
#include <cstdio>

extern "C" {

using OSStatus = std::int32_t;
using AuthorizationFlags = std::uint32_t;
using AuthorizationRef = const struct AuthorizationOpaqueRef*;
using AuthorizationString = const char*;

struct AuthorizationItem {
  AuthorizationString name;
  std::size_t valueLength;
  void* value;
  std::uint32_t flags;
};

struct AuthorizationItemSet {
  std::uint32_t count;
  AuthorizationItem* items;
};
using AuthorizationRights = AuthorizationItemSet;
using AuthorizationEnvironment = AuthorizationItemSet;

enum : AuthorizationFlags {
  kAuthorizationFlagDefaults = 0,
  kAuthorizationFlagInteractionAllowed = 1 << 0,
  kAuthorizationFlagExtendRights = 1 << 1,
  kAuthorizationFlagPartialRights = 1 << 2,
  kAuthorizationFlagDestroyRights = 1 << 3,
  kAuthorizationFlagPreAuthorize = 1 << 4,
};

enum : OSStatus {
  errAuthorizationSuccess = 0,
  errAuthorizationInvalidSet = -60001,
  errAuthorizationInvalidRef = -60002,
  errAuthorizationInvalidPointer = -60004,
  errAuthorizationDenied = -60005,                 // by a rule, or for a wrong password
  errAuthorizationCanceled = -60006,               // the user closed the question
  errAuthorizationInteractionNotAllowed = -60007,  // there is nobody to ask
  errAuthorizationInternal = -60008,               // there is no service to ask
  errAuthorizationToolExecuteFailure = -60031,
};

/// Makes a reference, without any rights yet. Requires: `rights` is null.
OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* authorization);

/// Gives a reference back, its rights too with kAuthorizationFlagDestroyRights. Waits for the end
/// of a program that was started with it. What the desktop itself remembers of a consent, for some
/// minutes and for this process alone, stays.
OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags);

/// Acquires "system.privilege.admin", asking the user where that is allowed and needed. A copy of
/// what was granted is not made: `authorizedRights` becomes null.
OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** authorizedRights);

/// Starts a program, by its absolute path, as administrator; `*communicationsPipe` is connected to
/// its output, its input is empty. Requires: the right was acquired.
OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef authorization, const char* pathToTool,
                                            AuthorizationFlags options, char* const* arguments,
                                            FILE** communicationsPipe);

}  // extern "C"

#endif
