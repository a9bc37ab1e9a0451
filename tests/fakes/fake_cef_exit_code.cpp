// fake_cef_exit_code.cpp - one exported function of the fake runtime, in a file of its own: the
// build of the fake that lacks an export goes without it.
#include "tests/fakes/fake_cef_exports.h"
#include "tests/fakes/fake_cef_runtime.h"

int cef_get_exit_code() {
    fake::ledger::book().entered("cef_get_exit_code");
    return fake::runtime::the().exit_code();
}
