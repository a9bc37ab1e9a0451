// reference_events.h - the one place in a process where the events of DNS-SD references arrive: on
// the thread that put the first one in.
//
// Threads: unguarded; everything belongs to that thread.
#pragma once

#include <memory>

#include "bonjour.h"

namespace pennywort::discovery {

// From now on, whatever arrives for the reference is processed, by the library that it comes from.
// Past k_max_watched_references it is taken, and nothing of it is ever processed. False when the
// system refuses, and then nothing has changed.
bool put_in(cBonjourLib::Reference reference, const std::shared_ptr<cBonjourLib>& library);
// Ends that; also from within a call of the library's. Only for a reference that was put in.
void take_out(cBonjourLib::Reference reference, cBonjourLib& library);

// The library has said that nothing more comes for the reference.
void give_up(cBonjourLib::Reference reference, int error);
// Whether it has, or something arrived that could not be processed.
bool is_dead(cBonjourLib::Reference reference);

}  // namespace pennywort::discovery
