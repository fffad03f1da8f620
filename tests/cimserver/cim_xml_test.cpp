// Requests as they come over the wire: what is refused before an operation, and how an answer is written.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "cimserver/cimxml/answer.h"
#include "cimserver/cimxml/write_values.h"
#include "cimserver/http/endpoint.h"
#include "cimserver/mof/reader.h"
#include "cimserver/server.h"

namespace {

using namespace cimserver;

// A provider of its own, so that what reaches it and what it answers can be seen: its method returns the text
// of its arguments as a message.
CMPIStatus echo(CMPIMethodMI* mi, const CMPIContext*, const CMPIResult*, const CMPIObjectPath* path, const char*,
                const CMPIArgs* in, CMPIArgs* out) {
    const auto* const broker = static_cast<const CMPIBroker*>(mi->hdl);
    std::string text = CMGetCharPtr(path->ft->toString(path, nullptr));
    for (CMPICount i = 0; i < CMGetArgCount(in, nullptr); ++i) {
        CMPIString* name = nullptr;
        const CMPIData data = in->ft->getArgAt(in, i, &name, nullptr);
        text += std::string(" ") + CMGetCharPtr(name) + ":" + std::to_string(data.type) +
                (CMIsNullValue(data)        ? "null"
                 : data.type == CMPI_string ? CMGetCharPtr(data.value.string)
                                            : "");
    }
    const CMPIUint32 seven = 7;
    CMAddArg(out, "seven", &seven, CMPI_uint32);
    return CMReturnWithChars(broker, CMPI_RC_OK, text.c_str());
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

std::string message(const std::string& call) {
    return "<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE ID=\"1\" PROTOCOLVERSION=\"1.0\"><SIMPLEREQ>" + call +
           "</SIMPLEREQ></MESSAGE></CIM>";
}
constexpr char SPACE[] = "<LOCALNAMESPACEPATH><NAMESPACE NAME=\"n\"/><NAMESPACE NAME=\"s\"/></LOCALNAMESPACEPATH>";

std::string operation(const std::string& name, const std::string& parameters, const std::string& space = SPACE) {
    return message("<IMETHODCALL NAME=\"" + name + "\">" + space + parameters + "</IMETHODCALL>");
}
std::string method_call(const std::string& parameters, const std::string& name = "f") {
    return message("<METHODCALL NAME=\"" + name + "\"><LOCALCLASSPATH>" + SPACE +
                   "<CLASSNAME NAME=\"A\"/></LOCALCLASSPATH>" + parameters + "</METHODCALL>");
}

std::string repeated(const std::string& text, int times) {
    std::string result;
    for (int i = 0; i < times; ++i) {
        result += text;
    }
    return result;
}

TEST(CimXml, WhatIsNoRequestGetsAnHttpError) {
    const auto broker = echo_broker();
    const std::string whole = operation("GetClass", "");
    // Deep, though the tags in the comments seem to close what was opened.
    const std::string hidden_depth = operation(
        "GetInstance", "<IPARAMVALUE NAME=\"InstanceName\">" +
                           repeated("<INSTANCENAME CLASSNAME=\"A\"><KEYBINDING NAME=\"k\"><VALUE.REFERENCE>"
                                    "<!--</a></a></a>-->",
                                    20000) +
                           repeated("</VALUE.REFERENCE></KEYBINDING></INSTANCENAME>", 20000) + "</IPARAMVALUE>");
    const struct {
        std::string body;
        int status;
        const char* cim_error;
    } cases[] = {
        {"", 400, "request-not-well-formed"},
        {"<", 400, "request-not-well-formed"},
        {"\x00\xff\xfe<CIM>", 400, "request-not-well-formed"},
        {"<a></b>", 400, "request-not-well-formed"},
        {whole.substr(0, whole.size() - 3), 400, "request-not-well-formed"},
        {"<a/>", 400, "request-not-valid"},
        {"<CIM/>", 400, "request-not-valid"},
        {message(""), 400, "request-not-valid"},
        {message("<IMETHODCALL NAME=\"GetClass\"/>"), 400, "request-not-valid"},
        {message("<IMETHODCALL>" + std::string(SPACE) + "</IMETHODCALL>"), 400, "request-not-valid"},
        {message("<METHODCALL NAME=\"f\"/>"), 400, "request-not-valid"},
        {repeated("<a>", 100000), 400, "request-not-valid"},
        {hidden_depth, 400, "request-not-valid"},
        {"<!DOCTYPE a [<!ENTITY b \"c\"><!ENTITY d \"&b;&b;\">]><a>&d;</a>", 400, "request-not-valid"},
        {"<CIM CIMVERSION=\"3.0\" DTDVERSION=\"2.0\"><MESSAGE/></CIM>", 501, "unsupported-cim-version"},
        {"<CIM CIMVERSION=\"2.0\"><MESSAGE/></CIM>", 501, "unsupported-dtd-version"},
        {"<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE/></CIM>", 501, "unsupported-protocol-version"},
        {"<CIM CIMVERSION=\"2.0\" DTDVERSION=\"2.0\"><MESSAGE PROTOCOLVERSION=\"1.0\"><MULTIREQ/></MESSAGE></CIM>", 501,
         "multiple-requests-unsupported"},
    };
    for (const auto& c : cases) {
        const HttpAnswer answer = answer_cim_xml(*broker, c.body, "h");
        EXPECT_EQ(answer.status, c.status) << c.body.substr(0, 100);
        EXPECT_EQ(answer.cim_error, c.cim_error) << c.body.substr(0, 100);
    }
}

TEST(CimXml, WhatAnOperationRefusesIsACimError) {
    const auto broker = echo_broker();
    const auto class_parameter = [](const std::string& name, const std::string& class_name) {
        return "<IPARAMVALUE NAME=\"" + name + "\"><CLASSNAME NAME=\"" + class_name + "\"/></IPARAMVALUE>";
    };
    const std::string source = "<IPARAMVALUE NAME=\"ObjectName\"><INSTANCENAME CLASSNAME=\"A\"/></IPARAMVALUE>";
    const std::string keyed =
        "<IPARAMVALUE NAME=\"ObjectName\"><INSTANCENAME CLASSNAME=\"A\"><KEYBINDING NAME=\"k\"><KEYVALUE>x</KEYVALUE>"
        "</KEYBINDING></INSTANCENAME></IPARAMVALUE>";
    const struct {
        std::string body;
        const char* error;
    } cases[] = {
        {operation("ExecQuery", ""), "7\" DESCRIPTION=\"operation ExecQuery is not supported"},
        {operation("GetClass", "", "<LOCALNAMESPACEPATH/>"), "3\" DESCRIPTION=\"namespace  is not known"},
        {operation("GetClass", ""), "6\" DESCRIPTION=\"no class is named"},
        {operation("GetClass", class_parameter("ClassName", "B&lt;")), "6\" DESCRIPTION=\"class B&lt; is not known"},
        {operation("EnumerateInstances", class_parameter("ClassName", "B")), "5\" DESCRIPTION=\"class B is not known"},
        {operation("GetInstance", ""), "4\" DESCRIPTION=\"InstanceName is missing"},
        {operation("GetInstance", "<IPARAMVALUE NAME=\"InstanceName\"><VALUE>x</VALUE></IPARAMVALUE>"),
         "4\" DESCRIPTION=\"VALUE is no path"},
        {operation("GetInstance", "<IPARAMVALUE NAME=\"InstanceName\"><INSTANCENAME CLASSNAME=\"A\"/></IPARAMVALUE>"),
         "6\" DESCRIPTION=\"not found"},
        {operation("References", source),
         "7\" DESCRIPTION=\"associations of a class are not supported; name an instance"},
        {operation("References", keyed + class_parameter("ResultClass", "B")),
         "4\" DESCRIPTION=\"class B is not known"},
        {operation("Associators",
                   "<IPARAMVALUE NAME=\"ObjectName\"><INSTANCENAME CLASSNAME=\"A\"><KEYBINDING "
                   "NAME=\"k\"><KEYVALUE VALUETYPE=\"numeric\">x</KEYVALUE></KEYBINDING></INSTANCENAME>"
                   "</IPARAMVALUE>"),
         "4\" DESCRIPTION=\"key value &quot;x&quot; is not of its type"},
        {method_call("", "g"), "17\" DESCRIPTION=\"class A has no method g"},
        {method_call("<PARAMVALUE NAME=\"z\"/>"), "4\" DESCRIPTION=\"method f has no parameter z"},
        {method_call("<PARAMVALUE NAME=\"n\"><VALUE>-1</VALUE></PARAMVALUE>"),
         "4\" DESCRIPTION=\"parameter n: &quot;-1&quot; is not a uint32"},
        {method_call("<PARAMVALUE NAME=\"n\" PARAMTYPE=\"uint7\"><VALUE>1</VALUE></PARAMVALUE>"),
         "4\" DESCRIPTION=\"parameter n: there is no type &quot;uint7&quot;"},
        {method_call("<PARAMVALUE NAME=\"l\"><VALUE.ARRAY><X/></VALUE.ARRAY></PARAMVALUE>"),
         "4\" DESCRIPTION=\"parameter l: X is no element of an array"},
    };
    for (const auto& c : cases) {
        const HttpAnswer answer = answer_cim_xml(*broker, c.body, "h");
        EXPECT_EQ(answer.status, 200) << answer.body;
        EXPECT_NE(answer.body.find(std::string("<ERROR CODE=\"") + c.error + "\""), std::string::npos) << answer.body;
    }
}

TEST(CimXml, ArgumentsArriveAsTheClassOrTheClientSays) {
    const auto broker = echo_broker();
    const struct {
        const char* parameters;
        const char* arrived;
    } cases[] = {
        {"", ""},
        {"<PARAMVALUE NAME=\"S\"><VALUE> a,&amp;&#9;</VALUE></PARAMVALUE>", " s:5632 a,&amp;\t"},
        {"<PARAMVALUE NAME=\"s\"><VALUE></VALUE></PARAMVALUE>", " s:5632"},
        {"<PARAMVALUE NAME=\"s\"/>", " s:5632null"},
        {"<PARAMVALUE NAME=\"n\"><VALUE>5</VALUE></PARAMVALUE>", " n:160"},
        {"<PARAMVALUE NAME=\"n\"/>", " n:160null"},
        {"<PARAMVALUE NAME=\"n\" PARAMTYPE=\"string\"><VALUE>5</VALUE></PARAMVALUE>", " n:56325"},
        {"<PARAMVALUE NAME=\"l\"><VALUE.ARRAY><VALUE>a</VALUE><VALUE.NULL/></VALUE.ARRAY></PARAMVALUE>", " l:13824"},
        {"<PARAMVALUE NAME=\"l\"/>", " l:13824null"},
        {"<PARAMVALUE NAME=\"l\"><VALUE>a</VALUE></PARAMVALUE>", " l:5632a"},
    };
    for (const auto& c : cases) {
        const HttpAnswer answer = answer_cim_xml(*broker, method_call(c.parameters), "h");
        const std::string expected = std::string(
            "<METHODRESPONSE NAME=\"f\"><PARAMVALUE NAME=\"seven\" PARAMTYPE=\"uint32\">"
            "<VALUE>7</VALUE></PARAMVALUE></METHODRESPONSE></SIMPLERSP></MESSAGE>"
            "</CIM><!-- n/s:A");
        EXPECT_NE(answer.body.find(expected), std::string::npos) << answer.body;
        std::string arrived = c.arrived;  // as a comment, which knows no escapes
        if (const auto at = arrived.find("&amp;"); at != std::string::npos) {
            arrived.replace(at, 5, "&");
        }
        EXPECT_NE(answer.body.find("<!-- n/s:A" + arrived + " -->"), std::string::npos) << answer.body;
    }
}

TEST(CimXml, TextsCarryOnlyWhatXmlCan) {
    const struct {
        std::string text;
        const char* clean;
    } cases[] = {
        {"plain \t\r\n", "plain \t\r\n"},
        {std::string("a\0b", 3), "a?b"},
        {"\x1b[1m", "?[1m"},
        {"\xc3\xa9", "\xc3\xa9"},
        {"\xc3", "?"},
        {"\xc0\xaf", "??"},
        {"\xed\xa0\x80", "???"},
        {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},
        {"\xf5\x80\x80\x80", "????"},
        {"\xef\xbf\xbf", "???"},
        {"\xe2\x82", "??"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(clean_text(c.text), c.clean);
    }
}

// --- the endpoint -----------------------------------------------------------------------------------------

std::string exchange(std::uint16_t port, const std::string& sent) {
    const int fd = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    EXPECT_EQ(connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    for (std::size_t at = 0; at < sent.size();) {
        const auto wrote = send(fd, sent.data() + at, sent.size() - at, MSG_NOSIGNAL);
        if (wrote <= 0) {
            break;  // refused before its end
        }
        at += static_cast<std::size_t>(wrote);
    }
    shutdown(fd, SHUT_WR);
    std::string answer;
    char buffer[4096];
    for (ssize_t got; (got = recv(fd, buffer, sizeof buffer, 0)) > 0;) {
        answer.append(buffer, static_cast<std::size_t>(got));
    }
    close(fd);
    return answer;
}

TEST(Endpoint, RefusesWhatItDoesNotServe) {
    Endpoint endpoint([](const std::string& body) { return HttpAnswer{200, {}, std::to_string(body.size())}; });
    std::string error;
    ASSERT_TRUE(endpoint.start("127.0.0.1", 0, error)) << error;
    const auto post = [](const std::string& head, const std::string& body) {
        return "POST /cimom HTTP/1.1\r\nHost: h\r\n" + head + "Content-Length: " + std::to_string(body.size()) +
               "\r\n\r\n" + body;
    };
    const struct {
        std::string sent;
        const char* first_line;
    } cases[] = {
        {post("CIMOperation: MethodCall\r\n", "abc"), "HTTP/1.1 200 "},
        {post("CIMOperation: Other\r\n", "abc"), "HTTP/1.1 400 "},
        {"GET /cimom HTTP/1.1\r\nHost: h\r\n\r\n", "HTTP/1.1 405 "},
        {"M-POST /cimom HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n", "HTTP/1.1 501 "},
        {"POST /other HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n", "HTTP/1.1 404 "},
        {"POST /cimom HTTP/1.1\r\nHost: h\r\nContent-Length: 99999999999\r\n\r\n", "HTTP/1.1 413 "},
        {"POST /cimom HTTP/1.1\r\nHost: h\r\nTransfer-Encoding: chunked\r\n\r\n" +
             repeated("100000\r\n" + std::string(0x100000, 'x') + "\r\n", 5) + "0\r\n\r\n",
         "HTTP/1.1 413 "},
        {"POST /cimom HTTP/1.1\r\nHost: h\r\nX: " + std::string(100000, 'x') + "\r\n\r\n", "HTTP/1.1 4"},
    };
    for (const auto& c : cases) {
        EXPECT_TRUE(exchange(endpoint.port(), c.sent).starts_with(c.first_line)) << c.sent.substr(0, 100);
    }
    for (const char* const garbage : {"", "\r\n\r\n", "x", "\x16\x03\x01\x02", "POST"}) {
        (void)exchange(endpoint.port(), garbage);
    }
    EXPECT_NE(exchange(endpoint.port(), cases[0].sent).find("\r\n\r\n3"), std::string::npos);
}

TEST(Endpoint, ServesRequestsSideBySide) {
    std::atomic<int> inside{0};
    Endpoint endpoint([&](const std::string&) {
        ++inside;
        while (inside < 4) {
            std::this_thread::yield();
        }
        return HttpAnswer{200, {}, "x"};
    });
    std::string error;
    ASSERT_TRUE(endpoint.start("127.0.0.1", 0, error)) << error;
    std::vector<std::thread> clients;
    for (int i = 0; i < 4; ++i) {
        clients.emplace_back([&] {
            const std::string answer =
                exchange(endpoint.port(), "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n");
            EXPECT_TRUE(answer.starts_with("HTTP/1.1 200 "));
        });
    }
    for (std::thread& client : clients) {
        client.join();
    }
    Endpoint second([](const std::string&) { return HttpAnswer{}; });
    EXPECT_FALSE(second.start("127.0.0.1", endpoint.port(), error));
    EXPECT_FALSE(second.start("here", 0, error));
    EXPECT_EQ(error, "\"here\" is no IP address");
}

TEST(Server, ReadsAddresses) {
    const struct {
        const char* text;
        const char* address;  // null: refused
        int port;
    } cases[] = {
        {"", "127.0.0.1", 5988},      {"0.0.0.0", "0.0.0.0", 5988}, {"127.0.0.2:0", "127.0.0.2", 0},
        {":80", "127.0.0.1", 80},     {"[::1]:81", "::1", 81},      {"[::1]", "::1", 5988},
        {"::1", "::1", 5988},         {"127.0.0.1:", nullptr, 0},   {"127.0.0.1:65536", nullptr, 0},
        {"127.0.0.1:8x", nullptr, 0}, {"[::1]8", nullptr, 0},
    };
    for (const auto& c : cases) {
        ServerOptions options;
        ASSERT_EQ(parse_address(c.text, options), c.address != nullptr) << c.text;
        if (c.address != nullptr) {
            EXPECT_EQ(options.address, c.address);
            EXPECT_EQ(options.port, c.port);
        }
    }
}

}  // namespace
