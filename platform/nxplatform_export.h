// Symbol visibility of the platform layer: only what is marked is exported.
#pragma once

#define NXPLATFORM_API __attribute__((visibility("default")))
