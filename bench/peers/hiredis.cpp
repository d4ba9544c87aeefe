// hiredis and redis-server: all fields of a hash (HGETALL), and the values of named keys (MGET).

#include <memory>
#include <stdexcept>

#include <hiredis/hiredis.h>
#include <sys/socket.h>

#include "peer.h"

namespace {

constexpr std::size_t BATCH = 1000; // commands in flight when the server is filled

struct Server {
    int port = krvpeer::freePort(SOCK_STREAM);
    krvbench::ChildProcess process{
        {"redis-server", "--bind", "127.0.0.1", "--port", std::to_string(port), "--save", "", "--appendonly", "no"},
        krvpeer::CORE, true};
    redisContext* connection = nullptr;

    Server()
    {
        krvpeer::awaitListener(port);
        connection = redisConnect("127.0.0.1", port);
        if (!connection || connection->err) throw std::runtime_error("redisConnect failed");
    }
    ~Server()
    {
        redisFree(connection);
    }
};

using Reply = std::unique_ptr<redisReply, void (*)(redisReply*)>;

Reply take(redisContext* connection, void* reply)
{
    if (!reply) throw std::runtime_error(connection->errstr);
    return {static_cast<redisReply*>(reply), [](redisReply* each) { freeReplyObject(each); }};
}

void receive(redisContext* connection, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        void* reply = nullptr;
        redisGetReply(connection, &reply);
        if (take(connection, reply)->type == REDIS_REPLY_ERROR) throw std::runtime_error("redis-server refuses");
    }
}

void fill(redisContext* connection, const std::string& hash, std::size_t n)
{
    std::size_t inFlight = 0;
    for (std::size_t k = 0; k < n; ++k) {
        const std::string id = krvbench::statId(k);
        const std::string value = krvbench::statValue(k);
        redisAppendCommand(connection, "HSET %s %s %s", hash.c_str(), id.c_str(), value.c_str());
        redisAppendCommand(connection, "SET %s %s", id.c_str(), value.c_str());
        inFlight += 2;
        if (inFlight >= BATCH) {
            receive(connection, inFlight);
            inFlight = 0;
        }
    }
    receive(connection, inFlight);
}

void getAll(redisContext* connection, const std::string& hash, std::size_t n)
{
    const Reply reply = take(connection, redisCommand(connection, "HGETALL %s", hash.c_str()));
    krvpeer::Shown shown;
    for (std::size_t i = 0; i + 1 < reply->elements; i += 2) {
        const redisReply* name = reply->element[i];
        const redisReply* value = reply->element[i + 1];
        shown.look(name->str, name->len, value->str, value->len);
    }
    shown.expect(n);
}

// "MGET" and the names.
struct Words {
    std::vector<std::string> texts{"MGET"};
    std::vector<const char*> pointers;
    std::vector<std::size_t> lengths;

    explicit Words(std::size_t n)
    {
        for (std::size_t k = 0; k < n; ++k) texts.push_back(krvbench::statId(k));
        for (const std::string& text : texts) {
            pointers.push_back(text.data());
            lengths.push_back(text.size());
        }
    }
};

void getMany(redisContext* connection, Words& words)
{
    const std::size_t n = words.texts.size() - 1;
    const Reply reply = take(
        connection, redisCommandArgv(connection, static_cast<int>(n + 1), words.pointers.data(), words.lengths.data()));
    krvpeer::Shown shown;
    for (std::size_t i = 0; i < reply->elements; ++i) {
        const redisReply* value = reply->element[i];
        shown.look(words.pointers[i + 1], words.lengths[i + 1], value->str, value->len);
    }
    shown.expect(n);
}

krvpeer::MakeContenders start()
{
    const auto server = std::make_shared<Server>();
    return [server](std::size_t n) -> std::vector<krvbench::Contender> {
        const std::string hash = "stats:" + std::to_string(n);
        fill(server->connection, hash, n);
        const auto words = std::make_shared<Words>(n);
        return {
            {"hiredis_hgetall", [server, hash, n] { getAll(server->connection, hash, n); }},
            {"hiredis_mget", [server, words] { getMany(server->connection, *words); }},
        };
    };
}

} // namespace

int main(int argc, char** argv)
{
    return krvpeer::comparePeer(argc, argv, start);
}
