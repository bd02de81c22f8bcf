// No authorisation service is connected here: nobody is asked, and every request is refused.
#include "flag/authorization.h"

OSStatus AuthorizationCreate(const AuthorizationRights*, const AuthorizationEnvironment*,
                             AuthorizationFlags, AuthorizationRef*) {
  return errAuthorizationInternal;
}

OSStatus AuthorizationFree(AuthorizationRef, AuthorizationFlags) {
  return errAuthorizationInternal;
}

OSStatus AuthorizationCopyRights(AuthorizationRef, const AuthorizationRights*,
                                 const AuthorizationEnvironment*, AuthorizationFlags,
                                 AuthorizationRights**) {
  return errAuthorizationInternal;
}

OSStatus AuthorizationExecuteWithPrivileges(AuthorizationRef, const char*, AuthorizationFlags,
                                            char* const*, FILE**) {
  return errAuthorizationInternal;
}
