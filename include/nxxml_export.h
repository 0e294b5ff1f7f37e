// Symbol visibility of libnxxmlparser: only what is marked is exported.
#pragma once

#define NXXML_API __attribute__((visibility("default")))
