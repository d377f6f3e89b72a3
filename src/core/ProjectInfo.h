#pragma once

// Where users find new releases; printed in the banner of every text file the library writes.
inline constexpr char const* kVendrakDownloadAddress = "https://vendrak.example.org/download";
