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
  errAuthorizationInternal = -60008,
};

/// Makes a reference, without any rights yet.
OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* authorization);

/// Gives a reference back, its rights too with kAuthorizationFlagDestroyRights.
OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags);

/// Acquires rights, asking the user where that is allowed and needed.
OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** authorizedRights);

/// Starts a program as administrator; `*communicationsPipe` is connected to its output.
OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef authorization, const char* pathToTool,
                                            AuthorizationFlags options, char* const* arguments,
                                            FILE** communicationsPipe);

}  // extern "C"

#endif
