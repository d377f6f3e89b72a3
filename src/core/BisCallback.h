#pragma once

// The caller's printf-style message sink. Its result is ignored by the library.
using BisCallback = bool (*)(char const* format, ...);

// The callback used whenever the caller installed none: prints nothing, but polls the console so
// that Escape cancels the running operation (throws Generic_Errors 9).
bool bis_default_callback(char const* format, ...);
