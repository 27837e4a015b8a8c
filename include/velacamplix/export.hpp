#pragma once

// Marks what a host may link against; everything else stays local to the shared object (see cmake/export.map).
#define VELACAMPLIX_API __attribute__((visibility("default")))
