// libmemcached and memcached: the values of named keys, by one request of many names.

#include <memory>
#include <stdexcept>

#include <libmemcached/memcached.h>
#include <sys/socket.h>

#include "peer.h"

namespace {

struct Server {
    int port = krvpeer::freePort(SOCK_STREAM);
    krvbench::ChildProcess process{
        {"memcached", "-u", "root", "-l", "127.0.0.1", "-p", std::to_string(port), "-U", "0", "-m", "256"},
        krvpeer::CORE, true};
    memcached_st* connection = memcached_create(nullptr);

    Server()
    {
        krvpeer::awaitListener(port);
        memcached_server_add(connection, "127.0.0.1", static_cast<in_port_t>(port));
    }
    ~Server()
    {
        memcached_free(connection);
    }
};

struct Names {
    std::vector<std::string> texts;
    std::vector<const char*> pointers;
    std::vector<std::size_t> lengths;

    explicit Names(std::size_t n)
    {
        for (std::size_t k = 0; k < n; ++k) texts.push_back(krvbench::statId(k));
        for (const std::string& text : texts) {
            pointers.push_back(text.data());
            lengths.push_back(text.size());
        }
    }
};

void fill(memcached_st* connection, std::size_t n)
{
    memcached_behavior_set(connection, MEMCACHED_BEHAVIOR_NOREPLY, 1);
    for (std::size_t k = 0; k < n; ++k) {
        const std::string id = krvbench::statId(k);
        const std::string value = krvbench::statValue(k);
        if (memcached_failed(memcached_set(connection, id.data(), id.size(), value.data(), value.size(), 0, 0)))
            throw std::runtime_error("memcached_set failed");
    }
    memcached_behavior_set(connection, MEMCACHED_BEHAVIOR_NOREPLY, 0);
}

void getMany(memcached_st* connection, const Names& names)
{
    if (memcached_failed(memcached_mget(connection, names.pointers.data(), names.lengths.data(), names.texts.size())))
        throw std::runtime_error("memcached_mget failed");
    krvpeer::Shown shown;
    memcached_result_st result;
    memcached_result_create(connection, &result);
    memcached_return_t rc;
    while (memcached_fetch_result(connection, &result, &rc))
        shown.look(memcached_result_key_value(&result), memcached_result_key_length(&result),
            memcached_result_value(&result), memcached_result_length(&result));
    memcached_result_free(&result);
    shown.expect(names.texts.size());
}

krvpeer::MakeContenders start()
{
    const auto server = std::make_shared<Server>();
    return [server](std::size_t n) -> std::vector<krvbench::Contender> {
        fill(server->connection, n);
        const auto names = std::make_shared<Names>(n);
        return {{"memcached_mget", [server, names] { getMany(server->connection, *names); }}};
    };
}

} // namespace

int main(int argc, char** argv)
{
    return krvpeer::comparePeer(argc, argv, start);
}
