#include "gateway/station/Mountpoint.h"

#include "gateway/ntrip/Request.h"

#include <algorithm>
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
    if (closed_)
        return receiver.end();
    greet(receiver, at);
    receivers_.insert(&receiver);
}

bool Mountpoint::greet(Receiver& receiver, Instant at) const {
    Bytes first = kept_.current(at);
    if (first.empty())
        return false;
    receiver.take(Outgoing(std::move(first)), at);
    return true;
}

void Mountpoint::close() {
    closed_ = true;
    door.shut();
    for (Receiver* const receiver : std::exchange(receivers_, {}))
        receiver->end();
}

std::size_t Mountpoint::roversCount() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(receivers_, [](const Receiver* r) { return r->isRover(); }));
}

std::vector<RoverLook> Mountpoint::rovers() const {
    std::vector<RoverLook> out;
    for (const Receiver* const receiver : receivers_)
        if (receiver->isRover())
            out.push_back(receiver->look());
    std::ranges::sort(out, std::ranges::greater{}, &RoverLook::sinceUnixS);
    return out;
}

bool Mountpoint::delivers(Instant now) const {
    return heard_.lastEpoch() && now - *heard_.lastEpoch() < silence_;
}

} // namespace gateway
