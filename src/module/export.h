// The mark of what the module image exports.  The image is built with hidden
// visibility, so a routine or record is in its symbol table only when its
// declaration carries ESF_EXPORT; tests/module_exports.txt lists them all.
#pragma once

#define ESF_EXPORT __attribute__((visibility("default")))
