// What the cross-build knows of the Security framework: declarations of our own, after the
// published signatures. On a Mac the framework's own header is used and this one is not.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef int32_t OSStatus;
typedef uint32_t AuthorizationFlags;
typedef const struct AuthorizationOpaqueRef* AuthorizationRef;
typedef const char* AuthorizationString;

typedef struct {
  AuthorizationString name;
  size_t valueLength;
  void* value;
  uint32_t flags;
} AuthorizationItem;

typedef struct {
  uint32_t count;
  AuthorizationItem* items;
} AuthorizationItemSet;
typedef AuthorizationItemSet AuthorizationRights;
typedef AuthorizationItemSet AuthorizationEnvironment;

enum {
  kAuthorizationFlagDefaults = 0,
  kAuthorizationFlagInteractionAllowed = 1 << 0,
  kAuthorizationFlagExtendRights = 1 << 1,
  kAuthorizationFlagPartialRights = 1 << 2,
  kAuthorizationFlagDestroyRights = 1 << 3,
  kAuthorizationFlagPreAuthorize = 1 << 4
};

enum {
  errAuthorizationSuccess = 0,
  errAuthorizationDenied = -60005,
  errAuthorizationCanceled = -60006,
  errAuthorizationInteractionNotAllowed = -60007,
  errAuthorizationInternal = -60008
};

OSStatus AuthorizationCreate(const AuthorizationRights* rights,
                             const AuthorizationEnvironment* environment, AuthorizationFlags flags,
                             AuthorizationRef* authorization);

OSStatus AuthorizationFree(AuthorizationRef authorization, AuthorizationFlags flags);

OSStatus AuthorizationCopyRights(AuthorizationRef authorization, const AuthorizationRights* rights,
                                 const AuthorizationEnvironment* environment,
                                 AuthorizationFlags flags, AuthorizationRights** authorizedRights);

OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef authorization, const char* pathToTool,
                                            AuthorizationFlags options, char* const* arguments,
                                            FILE** communicationsPipe) __attribute__((deprecated));

#ifdef __cplusplus
}
#endif
