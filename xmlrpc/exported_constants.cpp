// exported_constants.cpp - keeps the constants of exported classes in the DLL; built for Windows
// only. Their users take them from there, while the compiler leaves out those that the library
// itself never refers to.
#include "xmlrpc.h"

namespace {

[[gnu::used]] const void* const k_kept[] = {&cXMLRPC::k_multipart};

}  // namespace
