// The program with its server: what the settings say to it, seen from a socket.
#include "app/program_test_support.h"

#include <arpa/inet.h>

namespace findwright {
namespace {

int connect_local(u32 port) {
    const int peer = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<u16>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(peer, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
    return peer;
}

// The whole answer.
std::string get(u32 port, const std::string &target) {
    const int peer = connect_local(port);
    const std::string request = "GET " + target + " HTTP/1.0\r\n\r\n";
    EXPECT_EQ(send(peer, request.data(), request.size(), MSG_NOSIGNAL), static_cast<ssize_t>(request.size()));
    std::string answer;
    char bytes[4096];
    for (ssize_t got; (got = recv(peer, bytes, sizeof(bytes), 0)) > 0;)
        answer.append(bytes, static_cast<size_t>(got));
    close(peer);
    return answer;
}

// A socket that nobody else can listen on, and its port.
int listen_local(u32 *port) {
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    EXPECT_EQ(bind(listener, reinterpret_cast<sockaddr *>(&address), size), 0);
    EXPECT_EQ(listen(listener, 1), 0);
    getsockname(listener, reinterpret_cast<sockaddr *>(&address), &size);
    *port = ntohs(address.sin_port);
    return listener;
}

// From the line that tells of it; 0 without one.
u32 port_of(const std::string &line) {
    const size_t at = line.find("http://127.0.0.1:");
    return at != std::string::npos ? static_cast<u32>(atoi(line.c_str() + at + 17)) : 0;
}

TEST_F(Program, ServesBrowsersAsItsSettingsSay) {
    program_write(at("l.fwl"), "Filename,Size\n\"X:\\some folder\\some file.txt\",7\n");
    std::filesystem::create_directories(at("data/findwright/HTTP Server"));
    program_write(at("data/findwright/HTTP Server/hello.txt"), "hello there");
    set("filelists=" + quoted("l.fwl") + "\nhttp_server_enabled=1\nhttp_server_port=0\n" +
        "http_title_format=$s at $t\nhttp_server_items_per_page=5\nhttp_server_username=u\n" +
        "http_server_password=\n");
    program_t process = start_app();
    ASSERT_TRUE(process->wait_for("Findwright is at http://127.0.0.1:") && process->wait_for("/\n"));
    EXPECT_TRUE(program_has(get(port_of(process->log()), "/"), "401 Unauthorized"));
    leave(process);

    set("filelists=" + quoted("l.fwl") + "\nhttp_server_enabled=1\nhttp_server_port=0\n" +
        "http_title_format=$s at $t\n");
    process = start_app();
    ASSERT_TRUE(process->wait_for("Findwright is at ") && process->wait_for("/\n"));
    u32 port = port_of(process->last);
    EXPECT_TRUE(program_has(get(port, "/?search=some&json=1"), "\"totalResults\":2"));
    const std::string page = get(port, "/?search=some");
    for (const char *text : {"<title>some at Findwright</title>", "2 results", "Date Modified"})
        EXPECT_TRUE(program_has(page, text)) << text << " in\n" << page;
    EXPECT_TRUE(program_has(get(port, "/hello.txt"), "\r\n\r\nhello there"));

    // In another language, it is another server.
    EXPECT_TRUE(hand_over("-language 1031"));
    ASSERT_TRUE(process->wait_for("Findwright ist unter ") && process->wait_for("/\n"));
    port = port_of(process->last);
    EXPECT_TRUE(program_has(get(port, "/?search=some"), "2 Treffer"));
    const int idle = connect_local(port); // it leaves all the same
    leave(process);
    close(idle);
    EXPECT_TRUE(program_has(program_read(at("state/findwright/Logs/HTTP_Server_Log.txt")), "GET /hello.txt"));
}

TEST_F(Program, TellsWhyItDoesNotServe) {
    u32 port;
    const int listener = listen_local(&port);
    const std::string busy =
        "http_server_port=" + std::to_string(port) + "\nhttp_server_bindings=127.0.0.1\n";
    const struct {
        std::string settings, message;
    } rows[] = {
        {"http_server_bindings=127.0.0.1;*\nhttp_server_port=0\n",
         "The HTTP server does not start: other machines can reach *. In " + settings().string() +
             ", set http_server_password, or http_server_allow_no_password=1"},
        {"http_server_port=70000\n", "http_server_port=70000 is no port"},
        {busy, "The HTTP server cannot use the address 127.0.0.1:" + std::to_string(port) + ": "},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.settings);
        set(row.settings + "http_server_enabled=2\n");
        EXPECT_TRUE(program_has(run({}, 1)->log(), row.message));
        set(row.settings + "http_server_enabled=1\n");
        const program_t process = start_app();
        process->wait_for(row.message);
        leave(process);
    }
    close(listener);

    set("http_server_enabled=1\nhttp_server_port=0\nhttp_server_bindings=*\nhttp_server_allow_no_password="
        "1\n");
    const program_t process = start_app();
    process->wait_for("Findwright is at ");
    leave(process);
}

} // namespace
} // namespace findwright
