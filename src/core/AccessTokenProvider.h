// How a backend caller asks for the bearer token of its next request.
#pragma once

#include <QFuture>
#include <QString>

#include <functional>
#include <optional>

// Answers on the GUI thread with a token that the backend accepts, or nothing
// when the user is signed out (or the session could not be renewed).
using AccessTokenProvider = std::function<QFuture<std::optional<QString>>()>;
