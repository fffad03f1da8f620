// Requests as they come over the wire: what is refused before an operation, and how an answer is written.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <future>
#include <latch>

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
    return "<CIM CIMVERSION='2.0' DTDVERSION='2.0'><MESSAGE ID='1' PROTOCOLVERSION='1.0'><SIMPLEREQ>" + call +
           "</SIMPLEREQ></MESSAGE></CIM>";
}
const std::string SPACE = "<LOCALNAMESPACEPATH><NAMESPACE NAME='n'/><NAMESPACE NAME='s'/></LOCALNAMESPACEPATH>";

std::string operation(const std::string& name, const std::string& parameters, const std::string& space = SPACE) {
    return message("<IMETHODCALL NAME='" + name + "'>" + space + parameters + "</IMETHODCALL>");
}
std::string parameter(const std::string& name, const std::string& content) {
    return "<IPARAMVALUE NAME='" + name + "'>" + content + "</IPARAMVALUE>";
}
std::string class_parameter(const std::string& name, const std::string& class_name) {
    return parameter(name, "<CLASSNAME NAME='" + class_name + "'/>");
}
std::string instance_parameter(const std::string& name, const std::string& keys) {
    return parameter(name, "<INSTANCENAME CLASSNAME='A'>" + keys + "</INSTANCENAME>");
}
std::string method_call(const std::string& parameters, const std::string& name = "f") {
    return message("<METHODCALL NAME='" + name + "'><LOCALCLASSPATH>" + SPACE +
                   "<CLASSNAME NAME='A'/></LOCALCLASSPATH>" + parameters + "</METHODCALL>");
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
    const std::string deep = repeated("<a>", 500000) + repeated("</a>", 500000);
    const std::string not_well_formed = "400 request-not-well-formed";
    const std::string not_valid = "400 request-not-valid";
    const struct {
        std::string body;
        std::string answer;
    } cases[] = {
        {"", not_well_formed},
        {std::string("\x00\xff\xfe<CIM>", 8), not_well_formed},
        {"<a></b>", not_well_formed},
        {whole.substr(0, whole.size() - 3), not_well_formed},
        {"<a/>", not_valid},
        {"<CIM/>", not_valid},
        {message(""), not_valid},
        {message("<IMETHODCALL NAME='GetClass'/>"), not_valid},
        {message("<IMETHODCALL>" + SPACE + "</IMETHODCALL>"), not_valid},
        {message("<METHODCALL NAME='f'/>"), not_valid},
        {deep, not_valid},
        {"<!DOCTYPE a [<!ENTITY b 'c'><!ENTITY d '&b;&b;'>]><a>&d;</a>", not_valid},
        {"<CIM CIMVERSION='3.0' DTDVERSION='2.0'><MESSAGE/></CIM>", "501 unsupported-cim-version"},
        {"<CIM CIMVERSION='2.0'><MESSAGE/></CIM>", "501 unsupported-dtd-version"},
        {"<CIM CIMVERSION='2.0' DTDVERSION='2.0'><MESSAGE/></CIM>", "501 unsupported-protocol-version"},
        {"<CIM CIMVERSION='2.0' DTDVERSION='2.0'><MESSAGE PROTOCOLVERSION='1.0'><MULTIREQ/></MESSAGE></CIM>",
         "501 multiple-requests-unsupported"},
    };
    for (const auto& c : cases) {
        const HttpAnswer answer = answer_cim_xml(*broker, c.body, "h");
        EXPECT_EQ(std::to_string(answer.status) + " " + answer.cim_error, c.answer) << c.body.substr(0, 100);
    }
}

TEST(CimXml, WhatAnOperationRefusesIsACimError) {
    const auto broker = echo_broker();
    const std::string key = "<KEYBINDING NAME='k'><KEYVALUE VALUETYPE='numeric'>";
    const struct {
        std::string body;
        int code;
        std::string description;
    } cases[] = {
        {operation("ExecQuery", ""), 7, "operation ExecQuery is not supported"},
        {operation("GetClass", "", "<LOCALNAMESPACEPATH/>"), 3, "namespace  is not known"},
        {operation("GetClass", ""), 6, "no class is named"},
        {operation("GetClass", class_parameter("ClassName", "B&lt;")), 6, "class B&lt; is not known"},
        {operation("EnumerateInstances", class_parameter("ClassName", "B")), 5, "class B is not known"},
        {operation("GetInstance", ""), 4, "InstanceName is missing"},
        {operation("GetInstance", parameter("InstanceName", "<VALUE/>")), 4, "VALUE is no path"},
        {operation("GetInstance", instance_parameter("InstanceName", "")), 6, "not found"},
        {operation("References", instance_parameter("ObjectName", "")), 7,
         "associations of a class are not supported; name an instance"},
        {operation("References", instance_parameter("ObjectName", key + "1</KEYVALUE></KEYBINDING>") +
                                     class_parameter("ResultClass", "B")),
         4, "class B is not known"},
        {operation("Associators", instance_parameter("ObjectName", key + "x</KEYVALUE></KEYBINDING>")), 4,
         "key value &quot;x&quot; is not of its type"},
        {method_call("", "g"), 17, "class A has no method g"},
        {method_call("<PARAMVALUE NAME='z'/>"), 4, "method f has no parameter z"},
        {method_call("<PARAMVALUE NAME='n'><VALUE>-1</VALUE></PARAMVALUE>"), 4,
         "parameter n: &quot;-1&quot; is not a uint32"},
        {method_call("<PARAMVALUE NAME='n' PARAMTYPE='uint7'><VALUE>1</VALUE></PARAMVALUE>"), 4,
         "parameter n: there is no type &quot;uint7&quot;"},
        {method_call("<PARAMVALUE NAME='l'><VALUE.ARRAY><X/></VALUE.ARRAY></PARAMVALUE>"), 4,
         "parameter l: X is no element of an array"},
    };
    for (const auto& c : cases) {
        const HttpAnswer answer = answer_cim_xml(*broker, c.body, "h");
        EXPECT_EQ(answer.status, 200) << answer.body;
        const std::string error =
            "<ERROR CODE=\"" + std::to_string(c.code) + "\" DESCRIPTION=\"" + c.description + "\"/>";
        EXPECT_NE(answer.body.find(error), std::string::npos) << answer.body;
    }
}

TEST(CimXml, ArgumentsArriveAsTheClassOrTheClientSays) {
    const auto broker = echo_broker();
    const std::pair<const char*, const char*> cases[] = {
        {"", ""},
        {"<PARAMVALUE NAME='S'><VALUE> a,&amp;&#9;</VALUE></PARAMVALUE>", " s:5632 a,&\t"},
        {"<PARAMVALUE NAME='s'><VALUE></VALUE></PARAMVALUE>", " s:5632"},
        {"<PARAMVALUE NAME='s'/>", " s:5632null"},
        {"<PARAMVALUE NAME='n'><VALUE>5</VALUE></PARAMVALUE>", " n:160"},
        {"<PARAMVALUE NAME='n' PARAMTYPE='string'><VALUE>5</VALUE></PARAMVALUE>", " n:56325"},
        {"<PARAMVALUE NAME='l'><VALUE.ARRAY><VALUE>a</VALUE><VALUE.NULL/></VALUE.ARRAY></PARAMVALUE>", " l:13824"},
        {"<PARAMVALUE NAME='l'/>", " l:13824null"},
        {"<PARAMVALUE NAME='l'><VALUE>a</VALUE></PARAMVALUE>", " l:5632a"},
    };
    for (const auto& [parameters, arrived] : cases) {
        const HttpAnswer answer = answer_cim_xml(*broker, method_call(parameters), "h");
        const std::string expected =
            "<METHODRESPONSE NAME=\"f\"><PARAMVALUE NAME=\"seven\" PARAMTYPE=\"uint32\"><VALUE>7</VALUE></PARAMVALUE>"
            "</METHODRESPONSE></SIMPLERSP></MESSAGE></CIM><!-- n/s:A" +
            std::string(arrived) + " -->";
        EXPECT_TRUE(answer.body.ends_with(expected)) << answer.body;
    }
}

TEST(CimXml, TextsCarryOnlyWhatXmlCan) {
    const std::pair<std::string, const char*> cases[] = {
        {"plain \t\r\n", "plain \t\r\n"},
        {std::string("a\0b\x1b", 4), "a?b?"},
        {"\xc3\xa9", "\xc3\xa9"},
        {"\xc3", "?"},
        {"\xc0\xaf", "??"},
        {"\xed\xa0\x80", "???"},
        {"\xf0\x9f\x98\x80", "\xf0\x9f\x98\x80"},
        {"\xf5\x80\x80\x80", "????"},
        {"\xef\xbf\xbf", "???"},
        {"\xe2\x82", "??"},
    };
    for (const auto& [text, clean] : cases) {
        EXPECT_EQ(clean_text(text), clean);
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
    std::latch all_inside(4);
    Endpoint endpoint([&](const std::string&) {
        all_inside.arrive_and_wait();
        return HttpAnswer{200, {}, "x"};
    });
    std::string error;
    ASSERT_TRUE(endpoint.start("127.0.0.1", 0, error)) << error;
    std::vector<std::future<std::string>> clients;
    for (int i = 0; i < 4; ++i) {
        clients.push_back(std::async(std::launch::async, exchange, endpoint.port(),
                                     "POST / HTTP/1.1\r\nHost: h\r\nContent-Length: 0\r\n\r\n"));
    }
    for (auto& client : clients) {
        EXPECT_TRUE(client.get().starts_with("HTTP/1.1 200 "));
    }
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
