// The signed-in session as the command line uses it: one AuthenticationService
// configured from the global options, shared by the commands that talk to the
// backend.
#pragma once

#include "account/AuthenticationService.h"

#include <memory>

class CliContext;

// A service that runs no start-up check of its own; the browser opens only
// when there is a desktop to open it on.
std::unique_ptr<AuthenticationService> makeAuthenticationService(const CliContext& context,
                                                                 bool checkStoredToken);
