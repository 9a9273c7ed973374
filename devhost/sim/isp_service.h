// What the simulated ISP service does with a request, without faults: its
// parameter blocks per command and channel, and the operations on them.
#ifndef DEVHOST_SIM_ISP_SERVICE_H
#define DEVHOST_SIM_ISP_SERVICE_H

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "profile.h"

namespace devhost {

inline constexpr uint16_t kStatusOk = 200;
inline constexpr uint16_t kStatusBadRequest = 400;
inline constexpr uint16_t kStatusNoBlock = 404;

enum IspOperation : uint8_t { kOpReset = 0, kOpCreate = 1, kOpRead = 2, kOpWrite = 3 };

// "reset", "create", "read", "write", as the journal names them.
const char* OperationName(uint8_t op);

// The service's parameter blocks, per command and channel, made from the
// profile when first used.
class IspState {
public:
    explicit IspState(const DeviceImage& image) : image_(image) {}

    // A copy of the block, or nullopt when the service has none there.
    std::optional<Bytes> Get(unsigned command, uint32_t channel)
    {
        std::lock_guard<std::mutex> guard(lock_);
        Bytes* block = Find(command, channel);
        return block != nullptr ? std::optional<Bytes>(*block) : std::nullopt;
    }

    // Stores the block when the service has one of that size there.
    bool Put(unsigned command, uint32_t channel, const Bytes& value)
    {
        std::lock_guard<std::mutex> guard(lock_);
        Bytes* block = Find(command, channel);
        if (block == nullptr || block->size() != value.size()) {
            return false;
        }
        *block = value;
        return true;
    }

    // Returns the blocks of one command (or of all, for 0) to the profile.
    void Restore(unsigned command)
    {
        std::lock_guard<std::mutex> guard(lock_);
        for (auto it = blocks_.begin(); it != blocks_.end();) {
            it = command == 0 || it->first.first == command ? blocks_.erase(it) : std::next(it);
        }
    }

private:
    Bytes* Find(unsigned command, uint32_t channel)
    {
        const auto profile = image_.ispBlocks.find(command);
        if (profile == image_.ispBlocks.end() || channel >= image_.channels) {
            return nullptr;
        }
        return &blocks_.try_emplace({command, channel}, profile->second).first->second;
    }

    const DeviceImage& image_;
    std::mutex lock_;
    std::map<std::pair<unsigned, uint32_t>, Bytes> blocks_;
};

struct IspReply {
    uint16_t status = kStatusOk;
    Bytes content;
};

// What the service does with one request, without faults.
IspReply Perform(IspState& state, uint8_t op, unsigned command, std::optional<uint32_t> channel, const Bytes& content);

}  // namespace devhost

#endif  // DEVHOST_SIM_ISP_SERVICE_H
