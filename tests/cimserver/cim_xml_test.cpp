// Requests as they come over the wire: what is refused before an operation, and how an answer is written.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <latch>
#include <regex>

#include "cimserver/broker/objects.h"
#include "cimserver/cimxml/answer.h"
#include "cimserver/cimxml/write_values.h"
#include "cimserver/http/endpoint.h"
#include "cimserver/mof/reader.h"
#include "cimserver/server.h"
#include "pairs.h"

namespace {

using namespace cimserver;

// A provider of its own, so that what reaches it and what it answers can be seen: its method returns the text
// of its arguments as a message.
CMPIStatus echo(CMPIMethodMI* mi, const CMPIContext*, const CMPIResult*, const CMPIObjectPath* path, const char*,
                const CMPIArgs* in, CMPIArgs* out) {
    std::string text = CMGetCharPtr(path->ft->toString(path, nullptr));
    for (const auto& [name, value] : object(in).args) {
        text += " " + name + ":" + std::string(type_name(value.type)) + (value.is_array() ? "[]" : "") +
                (value.is_null() ? "" : "=\"" + value_text(value) + "\"");
    }
    const CMPIUint32 seven = 7;
    CMAddArg(out, "seven", &seven, CMPI_uint32);
    return CMReturnWithChars(static_cast<const CMPIBroker*>(mi->hdl), CMPI_RC_OK, text.c_str());
}
CMPIStatus cleaned(CMPIMethodMI*, const CMPIContext*, CMPIBoolean) {
    return CMReturn(CMPI_RC_OK);
}
constexpr CMPIMethodMIFT echo_table = {CMPIVersion200, CMPIVersion200, "echo", cleaned, echo};
CMPIMethodMI echo_mi = {nullptr, &echo_table};
CMPIMethodMI* create_echo(const CMPIBroker* broker, const CMPIContext*, CMPIStatus*) {
    echo_mi.hdl = const_cast<CMPIBroker*>(broker);
    return &echo_mi;
}

std::unique_ptr<Broker> echo_broker() {
    Schema schema;
    std::string error;
    EXPECT_TRUE(
        read_mof("class A { [Key] string k; uint32 f([IN] string s, [IN] uint32 n, [IN] string l[],\n"
                 "[IN(false), OUT] uint32 seven); };",
                 "t", schema, error))
        << error;
    auto broker = std::make_unique<Broker>(std::move(schema));
    const Registration entry{"A", "Echo", "", "n/s", false, false, true};
    EXPECT_TRUE(broker->load(
        {entry}, [](const std::string&) { return reinterpret_cast<void*>(create_echo); }, error));
    return broker;
}

// As requests.txt writes it.
std::string whole_message(std::string request) {
    const std::string space = "<LOCALNAMESPACEPATH><NAMESPACE NAME='n'/><NAMESPACE NAME='s'/></LOCALNAMESPACEPATH>";
    request = std::regex_replace(request, std::regex("\\{n/s\\}"), space);
    request = std::regex_replace(request, std::regex("\\{n/s:A\\}"),
                                 "<LOCALCLASSPATH>" + space + "<CLASSNAME NAME='A'/></LOCALCLASSPATH>");
    return request.starts_with("<IMETHODCALL") || request.starts_with("<METHODCALL")
               ? "<CIM CIMVERSION='2.0' DTDVERSION='2.0'><MESSAGE ID='1' PROTOCOLVERSION='1.0'><SIMPLEREQ>" + request +
                     "</SIMPLEREQ></MESSAGE></CIM>"
               : request;
}

std::string answer_to(const Broker& broker, const std::string& request) {
    const HttpAnswer answer = answer_cim_xml(broker, request, "h");
    return answer.status == 200 ? answer.body : std::to_string(answer.status) + " " + answer.cim_error;
}

std::string repeated(const std::string& text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

TEST(CimXml, EachRequestGetsItsAnswer) {
    const auto broker = echo_broker();
    expect_pairs("requests.txt", [&](const std::string& text) { return answer_to(*broker, whole_message(text)); });
    EXPECT_EQ(answer_to(*broker, ""), "400 request-not-well-formed");
    EXPECT_EQ(answer_to(*broker, std::string("\x00\xff\xfe<CIM>", 8)), "400 request-not-well-formed");
    EXPECT_EQ(answer_to(*broker, repeated("<a>", 500000) + repeated("</a>", 500000)), "400 request-not-valid");
}

TEST(CimXml, TextsCarryOnlyWhatXmlCan) {
    using namespace std::string_view_literals;
    EXPECT_EQ(
        clean_text(
            "a\tb\r\n\0c\x1b \xc3\xa9 \xc3 \xc0\xaf \xed\xa0\x80 \xf0\x9f\x98\x80 \xf5\x80\x80\x80 \xef\xbf\xbf \xe2\x82"sv),
        "a\tb\r\n?c? \xc3\xa9 ? ?? ??? \xf0\x9f\x98\x80 ???? ??? ??");
}

// --- the endpoint -----------------------------------------------------------------------------------------

std::string exchange(std::uint16_t port, const std::string& sent) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    ssize_t got = 1;
    for (std::size_t at = 0; at < sent.size() && got > 0; at += static_cast<std::size_t>(got)) {
        got = send(fd, sent.data() + at, sent.size() - at, MSG_NOSIGNAL);  // an error: refused before its end
    }
    shutdown(fd, SHUT_WR);
    std::string answer;
    char buffer[4096];
    while ((got = recv(fd, buffer, sizeof buffer, 0)) > 0) {
        answer.append(buffer, static_cast<std::size_t>(got));
    }
    close(fd);
    return answer;
}

TEST(Endpoint, RefusesWhatItDoesNotServe) {
    Endpoint endpoint([](const std::string& body) { return HttpAnswer{200, {}, std::to_string(body.size())}; });
    std::string error;
    ASSERT_TRUE(endpoint.start("127.0.0.1", 0, error)) << error;
    const std::string post = "POST /cimom HTTP/1.1\r\nHost: h\r\n";
    const std::string large =
        "Transfer-Encoding: chunked\r\n\r\n" + repeated("100000\r\n" + std::string(0x100000, 'x') + "\r\n", 5);
    const std::pair<std::string, const char*> cases[] = {
        {post + "CIMOperation: MethodCall\r\nContent-Length: 3\r\n\r\nabc", "HTTP/1.1 200 "},
        {post + "CIMOperation: Other\r\nContent-Length: 3\r\n\r\nabc", "HTTP/1.1 400 "},
        {"GET /cimom HTTP/1.1\r\nHost: h\r\n\r\n", "HTTP/1.1 405 "},
        {"M-POST /cimom HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n", "HTTP/1.1 501 "},
        {"POST /other HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n", "HTTP/1.1 404 "},
        {post + "Content-Length: 99999999999\r\n\r\n", "HTTP/1.1 413 "},
        {post + large + "0\r\n\r\n", "HTTP/1.1 413 "},
        {post + "X: " + std::string(100000, 'x') + "\r\n\r\n", "HTTP/1.1 4"},
        {"\x16\x03\x01\x02", ""},
    };
    for (const auto& [sent, first_line] : cases) {
        EXPECT_TRUE(exchange(endpoint.port(), sent).starts_with(first_line)) << sent.substr(0, 100);
    }
    EXPECT_TRUE(exchange(endpoint.port(), cases[0].first).ends_with("\r\n\r\n3"));
    Endpoint second([](const std::string&) { return HttpAnswer{}; });
    EXPECT_FALSE(second.start("127.0.0.1", endpoint.port(), error));
    EXPECT_FALSE(second.start("here", 0, error));
    EXPECT_EQ(error, "\"here\" is no IP address");
}

TEST(Endpoint, ServesRequestsSideBySide) {
    std::latch both_inside(2);
    Endpoint endpoint([&](const std::string&) {
        both_inside.arrive_and_wait();
        return HttpAnswer{200, {}, "x"};
    });
    std::string error;
    ASSERT_TRUE(endpoint.start("127.0.0.1", 0, error)) << error;
    const std::string request = "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n";
    auto other = std::async(std::launch::async, exchange, endpoint.port(), request);
    EXPECT_TRUE(exchange(endpoint.port(), request).starts_with("HTTP/1.1 200 "));
    EXPECT_TRUE(other.get().starts_with("HTTP/1.1 200 "));
}

TEST(Server, ReadsAddresses) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "127.0.0.1 5988"},   {"0.0.0.0", "0.0.0.0 5988"}, {"127.0.0.2:0", "127.0.0.2 0"},
        {":80", "127.0.0.1 80"},  {"[::1]:81", "::1 81"},      {"[::1]", "::1 5988"},
        {"::1", "::1 5988"},      {"127.0.0.1:", "none"},      {"127.0.0.1:65536", "none"},
        {"127.0.0.1:8x", "none"}, {"[::1]8", "none"},
    };
    for (const auto& [text, read] : cases) {
        ServerOptions options;
        const bool is_one = parse_address(text, options);
        EXPECT_EQ(is_one ? options.address + " " + std::to_string(options.port) : "none", read) << text;
    }
}

}  // namespace
