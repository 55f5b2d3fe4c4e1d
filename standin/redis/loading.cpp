// Loads the retained rows of a stream for its reader.
#include "standin/log.h"
#include "standin/redis/reader.h"

namespace standin::redis {
namespace {

// The intended number of bytes of one read, and the maximum number of its items.
constexpr std::size_t kTargetBytes = std::size_t{1} << 20;
constexpr std::int64_t kMaxItems = 1000;
// The maximum number of pages that are read between two reads of the log.
constexpr int kPages = 4;

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
  pageKeys_.reset();  // they may have been requested before changes were lost
  target_.reset();
}

void Reader::requestPageKeys(Link& link) {
  requested_ = pageCount_;
  link.append({"ZRANGEBYSCORE", keys_ + std::to_string(life_) + ":index", '(' + after_,
               std::to_string(complete_), "WITHSCORES", "LIMIT", "0", std::to_string(requested_)});
}

// Requests the rows of a page, and the keys of the page after it unless this is the last one.
void Reader::requestRows(Link& link, const Reply& pageKeys, bool last) {
  const std::size_t count = pageKeys.size() / 2;
  const std::string table = keys_ + std::to_string(life_) + ":rows";
  std::vector<std::string_view> command = {"HMGET", table};
  for (std::size_t i = 0; i < count; ++i) command.push_back(pageKeys[2 * i].string());
  link.append(command);
  after_ = pageKeys[2 * count - 1].string();
  if (!last) requestPageKeys(link);
  link.send();
}

// Passes each page while the server reads the next one. Passes every page that it has read before
// it returns: the log is read next, and a row must not be passed after a removal of this row that
// the log contains. The keys are read before the rows, so a row may have changed in between. The
// log contains all changes up to the target, and they are passed before onOnline().
void Reader::readPages(const Scripts& scripts, Link& link) {
  if (!pageKeys_) {
    requestPageKeys(link);
    pageKeys_ = link.receiveResult();
  }
  std::optional<Page> page;
  bool last = false;
  for (int left = kPages; left > 0 && !last; --left) {
    Reply keys = *std::exchange(pageKeys_, std::nullopt);
    const std::size_t count = keys.size() / 2;
    last = static_cast<std::int64_t>(count) < requested_;
    if (count == 0) break;
    requestRows(link, keys, last);
    if (page) passPage(*std::exchange(page, std::nullopt));
    page = Page{std::move(keys), link.receiveResult()};
    if (!last) pageKeys_ = link.receiveResult();
  }
  if (page) passPage(*page);
  if (!last) return;
  // If the stream was made anew, rows may be missing. Without a target, onOnline() is not called.
  const StreamState found = readState(scripts);
  if (found.life == life_) target_ = found.end;
}

void Reader::passPage(const Page& page) {
  std::vector<MessagePtr> rows;
  std::size_t bytes = 0;
  for (std::size_t i = 0; i < page.keys.size() / 2; ++i) {
    const Reply body = page.bodies[i];
    if (body.isNil()) continue;  // it was cleared meanwhile
    const std::string_view score = page.keys[2 * i + 1].string();
    const auto rev = toNumber<std::int64_t>(std::string(score));
    if (!rev || *rev <= low_ || *rev > complete_) {
      skip("row", "its revision is invalid");
      continue;
    }
    bytes += body.string().size();
    if (MessagePtr row = decodeOrSkip(body.string(), *rev, "row")) rows.push_back(std::move(row));
  }
  adapt(pageCount_, page.keys.size() / 2, bytes);
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
