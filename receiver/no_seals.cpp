// Built in place of seals.cpp without the seal's libraries. No seal is known.
#include <utility>

#include "receiver/seals.h"

struct Seals::Known {};

Seals::Seals(SealSettings settings) : settings_(std::move(settings)) {
  if (are_required()) error_ = "this program was built without ISA-L and libsodium: no seals";
}
Seals::~Seals() = default;

bool Seals::are_required() const { return settings_.require || !settings_.trust.empty(); }

std::optional<TransferKey> Seals::take(const HeaderPacket&, const TransferKey&, const Now&,
                                       std::string&) {
  return {};
}
bool Seals::knows(const TransferKey&) const { return false; }
std::optional<TransferKey> Seals::seal_of(const TransferKey&) const { return {}; }
std::optional<TransferKey> Seals::file_of(const TransferKey&) const { return {}; }
HeaderPacket Seals::header_of(const TransferKey&) const { return {}; }
bool Seals::agrees(const TransferRecord&) const { return false; }
Proof Seals::examine(Arrival&, const Arrival*, PartFiles&) const { return Proof::kNone; }
std::optional<SealedAs> Seals::sealed_as(const TransferKey&) const { return {}; }
std::string Seals::proof_text(const TransferKey&) const { return ""; }
void Seals::resume(const TransferKey&, const std::string&) {}
std::string Seals::text_of(const TransferKey&) const { return ""; }
void Seals::forget(const TransferKey&) {}
