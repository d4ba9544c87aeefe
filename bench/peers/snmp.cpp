// net-snmp and snmpd: a table of strings, fetched by GETBULK requests.

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>

#include <sys/socket.h>

#include <net-snmp/net-snmp-config.h>
#include <net-snmp/net-snmp-includes.h>

#include "peer.h"

namespace {

constexpr char BASE[] = ".1.3.6.1.4.1.8072.9999.9999";
constexpr long REPETITIONS = 40; // strings a request: about what a packet holds
constexpr int PATIENCE = 100;

// Where client and server keep what they want to remember.
class ScratchFolder {
public:
    ScratchFolder()
    {
        if (!mkdtemp(name)) throw std::runtime_error("no folder for snmpd");
        setenv("SNMP_PERSISTENT_DIR", name, 1);
    }
    ~ScratchFolder()
    {
        std::filesystem::remove_all(name);
    }
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    std::string path() const
    {
        return name;
    }

private:
    char name[32] = "/tmp/krvpeer-snmp-XXXXXX";
};

// A server for n statistics.
struct Server {
    int port;
    krvbench::ChildProcess process;

    Server(const std::string& folder, std::size_t n)
        : port(krvpeer::freePort(SOCK_DGRAM)),
          process({"snmpd", "-f", "-C", "-c", configuration(folder, n), "-Lf", "/dev/null", "-I", "-smux",
                      "udp:127.0.0.1:" + std::to_string(port)},
              krvpeer::CORE, true)
    {
    }

    static std::string configuration(const std::string& folder, std::size_t n)
    {
        const std::string file = folder + "/snmpd-" + std::to_string(n) + ".conf";
        std::ofstream(file) << "rocommunity public 127.0.0.1\n"
                            << "pass_persist " << BASE << " /usr/bin/env python3 -B " << KRVPEER_SNMP_STATISTICS << ' '
                            << BASE << ' ' << n << '\n';
        return file;
    }
};

class Table {
public:
    Table(const std::string& folder, std::size_t count) : server(folder, count), n(count)
    {
        snmp_session wanted;
        snmp_sess_init(&wanted);
        std::string peer = "udp:127.0.0.1:" + std::to_string(server.port);
        unsigned char community[] = "public";
        wanted.version = SNMP_VERSION_2c;
        wanted.peername = peer.data();
        wanted.community = community;
        wanted.community_len = sizeof community - 1;
        wanted.timeout = 1000000;
        wanted.retries = PATIENCE; // the server may not listen yet
        session = snmp_open(&wanted);
        if (!session) throw std::runtime_error("snmp_open failed");
        baseLength = MAX_OID_LEN;
        if (!read_objid(BASE, base, &baseLength)) throw std::runtime_error("no such object");
    }
    ~Table()
    {
        snmp_close(session);
    }
    Table(const Table&) = delete;
    Table& operator=(const Table&) = delete;

    void once()
    {
        krvpeer::Shown shown;
        oid name[MAX_OID_LEN];
        std::size_t length = baseLength;
        std::copy(base, base + baseLength, name);
        while (fetch(name, &length, &shown)) {}
        shown.expect(n);
    }

private:
    // One request from behind `name`, which becomes the last one that was shown. False at the end of the table.
    bool fetch(oid* name, std::size_t* length, krvpeer::Shown* shown)
    {
        snmp_pdu* request = snmp_pdu_create(SNMP_MSG_GETBULK);
        request->non_repeaters = 0;
        request->max_repetitions = REPETITIONS;
        snmp_add_null_var(request, name, *length);
        snmp_pdu* reply = nullptr;
        if (snmp_synch_response(session, request, &reply) != STAT_SUCCESS)
            throw std::runtime_error("snmpd does not answer");
        bool more = false;
        for (const variable_list* each = reply->variables; each; each = each->next_variable) {
            more = each->type == ASN_OCTET_STR &&
                   snmp_oidtree_compare(each->name, each->name_length, base, baseLength) == 0;
            if (!more) break;
            shown->look(reinterpret_cast<const char*>(each->name), each->name_length,
                reinterpret_cast<const char*>(each->val.string), each->val_len);
            *length = each->name_length;
            std::copy(each->name, each->name + each->name_length, name);
        }
        snmp_free_pdu(reply);
        return more;
    }

    Server server;
    std::size_t n;
    snmp_session* session = nullptr;
    oid base[MAX_OID_LEN];
    std::size_t baseLength = 0;
};

krvpeer::MakeContenders start()
{
    const auto folder = std::make_shared<ScratchFolder>();
    setenv("MIBS", "", 1);
    netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
    init_snmp("krvpeer");
    return [folder](std::size_t n) -> std::vector<krvbench::Contender> {
        const auto table = std::make_shared<Table>(folder->path(), n);
        return {{"snmp_getbulk", [table] { table->once(); }}};
    };
}

} // namespace

int main(int argc, char** argv)
{
    return krvpeer::comparePeer(argc, argv, start);
}
