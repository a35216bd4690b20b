#include "gateway/station/Mountpoint.h"

#include "gateway/ntrip/Request.h"

#include <utility>
#include <vector>

namespace gateway {

const SharedBytes& Outgoing::chunk() const {
    if (!chunk_) {
        const std::string_view data(reinterpret_cast<const char*>(plain_->data()), plain_->size());
        const std::string chunk = ntrip::chunk(data);
        chunk_ = std::make_shared<const Bytes>(chunk.begin(), chunk.end());
    }
    return chunk_;
}

void Mountpoint::publish(Block block, Instant at) {
    heard_.take(block, at);
    if (block.kind == Block::Kind::between)
        kept_.keep(block, at);
    const Outgoing out(std::move(block.bytes));
    const std::vector<Receiver*> now(receivers_.begin(), receivers_.end()); // some may leave
    for (Receiver* const receiver : now)
        receiver->take(out, at);
}

void Mountpoint::join(Receiver& receiver, Instant at) {
    Bytes first = kept_.current(at);
    if (!first.empty())
        receiver.take(Outgoing(std::move(first)), at);
    receivers_.insert(&receiver);
}

void Mountpoint::close() {
    for (Receiver* const receiver : std::exchange(receivers_, {}))
        receiver->end();
}

bool Mountpoint::delivers(Instant now) const {
    return heard_.lastEpoch() && now - *heard_.lastEpoch() < kSilent;
}

} // namespace gateway
