#include "standin/transport.h"

#include "standin/redis/reader.h"
#include "standin/redis/writer.h"

namespace standin {
namespace redis {
namespace {

class StreamFollower final : public Follower {
 public:
  explicit StreamFollower(std::shared_ptr<Reader> reader) REQUIRES(sMutex)
      : reader_(std::move(reader)) {
    reader_->start();
  }
  ~StreamFollower() override REQUIRES(sMutex) { reader_->stop(); }
  StreamFollower(const StreamFollower&) = delete;
  StreamFollower& operator=(const StreamFollower&) = delete;

  void awaitJoined() override REQUIRES(sMutex) { reader_->awaitJoined(); }
  void proceed() override REQUIRES(sMutex) { reader_->proceed(); }
  void request(std::int64_t from) override REQUIRES(sMutex) { reader_->request(from); }

 private:
  const std::shared_ptr<Reader> reader_;
};

}  // namespace

std::unique_ptr<Follower> Writer::follow(const std::string& stream, Receiver& receiver) {
  return std::make_unique<StreamFollower>(
      std::make_shared<Reader>(address_, settings_.serverTimeout, stream, receiver));
}

bool Writer::isSettled() const {
  if (!window_.empty()) return false;
  const auto hasArrived = [this](const auto& entry) REQUIRES(sMutex) {
    const auto& [life, end] = entry.second;
    return Reader::haveRead(address_.name, entry.first, life, end);
  };
  return std::all_of(reached_.begin(), reached_.end(), hasArrived);
}

}  // namespace redis

std::shared_ptr<Transport> makeTransport(const TransportSettings& settings,
                                         std::function<void(bool)> onLink) {
  const redis::Address address = redis::parseAddress(settings.server);
  redis::hiredis();  // loaded here, so that this call is refused if it cannot be loaded
  auto writer = std::make_shared<redis::Writer>(settings, address, std::move(onLink));
  writer->start();
  return writer;
}

}  // namespace standin
