/// What a library exports.
#pragma once

/// Marks what a library exports; everything else stays hidden.
#define OX_API __attribute__((visibility("default")))
