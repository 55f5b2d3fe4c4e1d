#include "standin/redis/scripts.h"

namespace standin::redis {
namespace {

// Numbers are formatted with %.0f, because Lua writes large ones with an exponent.
constexpr std::string_view kCommon = R"(
local base = KEYS[1]
local function decimal(number) return string.format('%.0f', number) end
local function key(life, name) return base .. life .. ':' .. name end
local function rev(life) return tonumber(redis.call('HGET', key(life, 'state'), 'rev') or '0') end
local function last(life)
  local top = redis.call('XREVRANGE', key(life, 'log'), '+', '-', 'COUNT', 1)
  return top[1] and top[1][1] or decimal(rev(life)) .. '-0'
end
-- Appends a change to the log under the id `at`-`number`; `number` is '0' for a row and '*' for any
-- other change. If another client has written that id or a higher one, uses the next revision.
-- Returns the id and the revision.
local function append(life, at, number, kind, body)
  local log = key(life, 'log')
  local id = redis.pcall('XADD', log, decimal(at) .. '-' .. number, kind, body)
  if type(id) == 'table' and id.err and string.find(id.err, 'smaller') then
    at = tonumber(string.match(last(life), '^%d+')) + 1
    id = redis.call('XADD', log, decimal(at) .. '-0', kind, body)
    redis.call('HSET', key(life, 'state'), 'rev', decimal(at))
  elseif type(id) == 'table' and id.err then
    id = redis.call('XADD', log, decimal(at) .. '-' .. number, kind, body)
  end
  return id, at
end
-- Renames a key of the stream to that of another life number, if it exists.
local function move(life, new, name)
  if redis.call('EXISTS', key(life, name)) == 1 then
    redis.call('RENAME', key(life, name), key(new, name))
  end
end
)";

constexpr std::string_view kJoinScript = R"(
local publisher, scheme, new, mode = ARGV[1], ARGV[2], ARGV[3], ARGV[4]
local covered = mode == 'covered' or mode == 'leaving'
local meta = base .. 'meta'
local life = redis.call('HGET', meta, 'life')
if not life then
  life = new
  redis.call('HSET', meta, 'life', life)
end
local acknowledged, lost = tonumber(ARGV[6]), 0
local seq = tonumber(redis.call('GET', key(life, 'seq:' .. publisher)) or '0')
if acknowledged > seq and ARGV[5] == life then
  -- Listeners may have read the lost posts, so the stream continues with another life number.
  lost = acknowledged - seq
  for _, name in ipairs(redis.call('HKEYS', key(life, 'pubs'))) do
    move(life, new, 'seq:' .. name)
  end
  for _, name in ipairs({'state', 'log', 'marks', 'rows', 'index', 'cleared', 'pubs'}) do
    move(life, new, name)
  end
  life = new
  redis.call('HSET', meta, 'life', life)
end
if math.max(acknowledged, seq) > 0 then
  redis.call('SET', key(life, 'seq:' .. publisher), decimal(math.max(acknowledged, seq)), 'EX', 86400)
end
local known = redis.call('HGET', meta, 'scheme')
local pubs = key(life, 'pubs')
if scheme ~= '' and not known then
  append(life, rev(life), '*', 's', scheme)
  redis.call('HSET', meta, 'scheme', scheme)
elseif scheme ~= '' and scheme ~= known and not (covered and ARGV[5] == life) then
  if mode ~= 'anew' or ARGV[5] ~= life or redis.call('HLEN', pubs) > 0 then
    return {0, life, known, redis.call('HGETALL', pubs), lost}
  end
  append(life, rev(life), '*', 'a', '')
  redis.call('PEXPIRE', key(life, 'log'), 60000)
  for _, name in ipairs({'state', 'marks', 'rows', 'index', 'cleared', 'pubs'}) do
    redis.call('UNLINK', key(life, name))
  end
  life = new
  redis.call('HSET', meta, 'life', life, 'scheme', scheme)
  append(life, 0, '*', 's', scheme)
end
pubs = key(life, 'pubs')
if mode ~= 'leaving' or ARGV[5] ~= life or redis.call('HEXISTS', pubs, publisher) == 1 then
  redis.call('HINCRBY', pubs, publisher, 1)
end
return {1, life, redis.call('HGET', meta, 'scheme') or '', last(life), lost}
)";

constexpr std::string_view kLeaveScript = R"(
local life, publisher, heartbeats = ARGV[1], ARGV[2], ARGV[3]
local pubs = key(life, 'pubs')
if heartbeats == '' or redis.call('HGET', pubs, publisher) == heartbeats then
  if redis.call('HDEL', pubs, publisher) == 1 and redis.call('HLEN', pubs) == 0 then
    append(life, rev(life), '*', 'e', '')
  end
end
return last(life)
)";

constexpr std::string_view kPostScript = R"(
local life, publisher, first, limit = ARGV[1], ARGV[2], tonumber(ARGV[3]), tonumber(ARGV[4])
if redis.call('HGET', base .. 'meta', 'life') ~= life then return 'LIFE' end
local posts = (#ARGV - 4) / 3
local seqKey = key(life, 'seq:' .. publisher)
local seq = tonumber(redis.call('GET', seqKey) or '0')
if seq < first - 1 then return 'GAP' end
local state, marks, log = key(life, 'state'), key(life, 'marks'), key(life, 'log')
local rows, index = key(life, 'rows'), key(life, 'index')
local at = rev(life)
local bytes = tonumber(redis.call('HGET', state, 'bytes') or '0')
local id
for i = math.max(seq - first + 1, 0), posts - 1 do
  local kind, member, body = ARGV[5 + 3 * i], ARGV[6 + 3 * i], ARGV[7 + 3 * i]
  if kind == 'r' or kind == 'k' then
    id, at = append(life, at + 1, '0', 'r', body)
    if kind == 'k' then member = member .. decimal(at) end
    redis.call('HSET', rows, member, body)
    redis.call('ZADD', index, decimal(at), member)
  elseif kind == 'm' then
    id, at = append(life, at, '*', kind, body)
  else
    local older = member
    id, at = append(life, at, '*', 'c', body .. ':' .. older)
    local oldest = math.min(tonumber(older), at + 1)
    local known = redis.call('HGET', key(life, 'cleared'), body)
    if not known or tonumber(string.match(known, '^-?%d+')) < oldest then
      redis.call('HSET', key(life, 'cleared'), body, decimal(oldest) .. ':' .. decimal(at))
    end
    local prefix = body .. ':'
    for _, candidate in ipairs(redis.call('ZRANGEBYSCORE', index, '-inf', '(' .. older)) do
      if string.sub(candidate, 1, #prefix) == prefix then
        redis.call('ZREM', index, candidate)
        redis.call('HDEL', rows, candidate)
      end
    end
  end
  bytes = bytes + #body + 100
  if bytes > limit / 16 then
    -- A log that begins with a row shows no gap if trimmed changes precede the row. Their last one
    -- is therefore retained.
    local mark, before = id, redis.call('XREVRANGE', log, '(' .. id, '-', 'COUNT', 1)[1]
    local isRow = string.sub(id, -2) == '-0'
    if isRow and before and string.sub(before[1], -2) ~= '-0' then mark = before[1] end
    redis.call('RPUSH', marks, mark)
    bytes = 0
    if redis.call('LLEN', marks) > 16 then
      redis.call('XTRIM', log, 'MINID', redis.call('LPOP', marks))
    end
  end
end
redis.call('HSET', state, 'rev', decimal(at), 'bytes', decimal(bytes))
redis.call('SET', seqKey, decimal(math.max(seq, first + posts - 1)), 'EX', 86400)
return id or last(life)
)";

constexpr std::string_view kReadStateScript = R"(
local meta = base .. 'meta'
local life = redis.call('HGET', meta, 'life')
if not life then
  life = ARGV[1]
  redis.call('HSET', meta, 'life', life)
end
return {life, redis.call('HGET', meta, 'scheme') or '', decimal(rev(life)), last(life),
        redis.call('HGETALL', key(life, 'cleared')), redis.call('HGETALL', key(life, 'pubs'))}
)";

constexpr std::string_view kBodies[] = {kJoinScript, kLeaveScript, kPostScript, kReadStateScript};
static_assert(std::size(kBodies) == kScripts);

}  // namespace

Scripts::Scripts(Link& link) : link_(link) {
  for (std::size_t i = 0; i < kScripts; ++i) {
    const std::string body = std::string(kCommon) + std::string(kBodies[i]);
    hashes_[i] = link.call({"SCRIPT", "LOAD", body}).string();
  }
}

std::vector<std::string_view> Scripts::command(
    Script script, const std::string& keys, const std::vector<std::string_view>& arguments) const {
  std::vector<std::string_view> command = {"EVALSHA", hashes_[static_cast<std::size_t>(script)],
                                           "1", keys};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return command;
}

void Scripts::append(Script script, const std::string& keys,
                     const std::vector<std::string_view>& arguments) const {
  link_.append(command(script, keys, arguments));
}

Reply Scripts::call(Script script, const std::string& keys,
                    const std::vector<std::string_view>& arguments) const {
  return link_.call(command(script, keys, arguments));
}

}  // namespace standin::redis
