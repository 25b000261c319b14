#pragma once

namespace zln::collector {

// The statuses of HTTP that the servers answer with, and the media type of their bodies.
inline constexpr int kOk = 200;
inline constexpr int kCreated = 201;
inline constexpr int kNoContent = 204;
inline constexpr int kNotModified = 304;
inline constexpr int kTemporaryRedirect = 307;
inline constexpr int kBadRequest = 400;
inline constexpr int kForbidden = 403;
inline constexpr int kNotFound = 404;
inline constexpr int kMethodNotAllowed = 405;
inline constexpr int kRequestTimeout = 408;
inline constexpr int kLengthRequired = 411;
inline constexpr int kUnsupportedMediaType = 415;
inline constexpr int kServerError = 500;
inline constexpr int kUnavailable = 503;

inline constexpr char kJson[] = "application/json";

}  // namespace zln::collector
