#pragma once

/// Marks a class or function as part of a library's binary interface. Both libraries are built with
/// hidden visibility, so that whatever does not carry this mark can't be linked against.
#define TARVEXDIAGS_EXPORT __attribute__((visibility("default")))

/// Keeps a class that is declared inside of a marked one out of the interface.
#define TARVEXDIAGS_INTERNAL __attribute__((visibility("hidden")))
