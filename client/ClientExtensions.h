// The state of this library's own extensions to one HDSMLClient: which intake
// path runs and the fused intake kernel's tables, and whatever later opt-in
// features keep per client. HDSMLClient's layout is part of the binary
// interface (programs place clients in storage of their own), so none of this
// may be a member of it: each client's extensions are created by its
// constructor, destroyed by its destructor, and found by the client's address.
//
// Thread-safety: attach, detach and find may be called from any thread; a
// client's extensions live from its constructor to its destructor, so a
// pointer found for a live client stays valid while that client lives. The
// members carry their own contracts.
#pragma once

#include <memory>

#include "frames/KernelPath.h"

class FusedIntake;
class HDSMLClient;

struct ClientExtensions {
  ClientExtensions();
  ~ClientExtensions();
  ClientExtensions(const ClientExtensions&) = delete;
  ClientExtensions& operator=(const ClientExtensions&) = delete;

  KernelPath intakePath = KernelPath::kPlain;  // camera thread, between frames
  std::unique_ptr<FusedIntake> fusedIntake;    // camera thread only
};

namespace hdsml {

// Creates the extensions of `client`, replacing any that an object destroyed
// without its destructor left at the same address.
ClientExtensions& attachExtensions(const HDSMLClient* client);
// Destroys the extensions of `client`; nothing for an address without any.
void detachExtensions(const HDSMLClient* client);
// The extensions of a live client; null for an address without any.
ClientExtensions* findExtensions(const HDSMLClient* client);

}  // namespace hdsml
