// Loads the retained rows of a stream for its reader.
#include "standin/log.h"
#include "standin/redis/reader.h"

namespace standin::redis {
namespace {

// The number of bytes that one read aims at, and the limit of its items.
constexpr std::size_t kTargetBytes = std::size_t{1} << 20;
constexpr std::int64_t kMaxItems = 1000;

}  // namespace

void Reader::adapt(std::int64_t& count, std::size_t read, std::size_t bytes) {
  if (bytes > kTargetBytes) {
    count = std::max<std::int64_t>(count / 2, 1);
  } else if (static_cast<std::int64_t>(read) == count && bytes < kTargetBytes / 2) {
    count = std::min(2 * count, kMaxItems);
  }
}

void Reader::startLoading() {
  const MutexLock lock(sMutex);
  if (!receiver_ || loading_ || wanted_ == INT64_MAX) return;
  if (wanted_ >= complete_) {
    wanted_ = INT64_MAX;
    return receiver_->onOnline(complete_);
  }
  loading_ = true;
  low_ = wanted_;
  after_ = std::to_string(low_);
  page_.reset();  // it may have been requested before changes were lost
  target_.reset();
}

void Reader::requestPage(Link& link) {
  requested_ = pageCount_;
  link.append({"ZRANGEBYSCORE", keys_ + std::to_string(life_) + ":index", '(' + after_,
               std::to_string(complete_), "WITHSCORES", "LIMIT", "0", std::to_string(requested_)});
}

// The index is read before the rows, so a row may have changed in between. The log has all changes
// up to the target, and they are passed before onOnline().
void Reader::readPage(const Scripts& scripts, Link& link) {
  if (!page_) {
    requestPage(link);
    page_ = link.receiveResult();
  }
  const Reply page = *std::exchange(page_, std::nullopt);
  const std::size_t count = page.size() / 2;
  const bool last = static_cast<std::int64_t>(count) < requested_;
  if (count > 0) {
    const std::string table = keys_ + std::to_string(life_) + ":rows";
    std::vector<std::string_view> command = {"HMGET", table};
    for (std::size_t i = 0; i < count; ++i) command.push_back(page[2 * i].string());
    link.append(command);
    after_ = page[2 * count - 1].string();
    if (!last) requestPage(link);  // the server finds the next page while this one is decoded
    passPage(page, link.receiveResult());
  }
  if (last) {
    // If the stream was made anew, rows may be missing. Without a target, onOnline() is not called.
    const Look found = look(scripts);
    if (found.life == life_) target_ = found.end;
  } else {
    page_ = link.receiveResult();
  }
}

void Reader::passPage(const Reply& page, const Reply& bodies) {
  std::vector<MessagePtr> rows;
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < page.size() / 2; ++i) {
    const Reply body = bodies[i];
    if (body.isNil()) continue;  // it was cleared meanwhile
    const std::string_view score = page[2 * i + 1].string();
    const auto rev = toNumber<std::int64_t>(std::string(score));
    if (!rev || *rev <= low_ || *rev > complete_) {
      skip("row", "its revision is invalid");
      continue;
    }
    bytes += body.string().size();
    if (MessagePtr row = decodeOrSkip(body.string(), *rev, "row")) rows.push_back(std::move(row));
  }
  adapt(pageCount_, page.size() / 2, bytes);
  const MutexLock lock(sMutex);
  if (!receiver_) return;
  for (const MessagePtr& row : rows) receiver_->onRetained(row);
  rows.clear();
}

void Reader::endLoading() {
  const MutexLock lock(sMutex);
  if (!receiver_ || !loading_ || !target_ || position_ < *target_) return;
  complete_ = low_;
  loading_ = false;
  if (wanted_ >= complete_) wanted_ = INT64_MAX;
  receiver_->onOnline(complete_);
}

}  // namespace standin::redis
