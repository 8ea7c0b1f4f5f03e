// Runs openssl and answers for it; see stunnel_certs.h.
#include "tests/real/stunnel_certs.h"

#include "tests/support/temp_folder.h"

#include <arpa/inet.h>
#include <csignal>
#include <cstdlib>
#include <netinet/in.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

static constexpr char SerialNumber[] = "1001"; // hexadecimal, of every server's certificate
static constexpr char KeyOptions[] = "-newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes ";

// Runs a command in the folder; an empty text, or what it said.
static std::string Run(const std::string& folder, const std::string& command)
{
    const std::string line = "cd '" + folder + "' && " + command + " >openssl.log 2>&1";
    return system(line.c_str()) == 0 ? "" : command + ": " + ReadWholeFile(folder + "/openssl.log");
}

std::string MakeAuthority(const std::string& folder, const std::string& name)
{
    return Run(folder, "openssl req -x509 " + std::string(KeyOptions) + "-days 30 -keyout " + name +
                           ".key -out " + name + ".pem -subj '/CN=" + name +
                           "' -addext keyUsage=critical,keyCertSign,cRLSign,digitalSignature");
}

std::string MakeCertificate(const std::string& folder, const std::string& authority,
                            const std::string& name, const std::string& host,
                            uint32_t responderPort)
{
    std::string extensions = "subjectAltName=DNS:" + host + "\nbasicConstraints=CA:FALSE\n";
    if (responderPort != 0)
        extensions +=
            "authorityInfoAccess=OCSP;URI:http://127.0.0.1:" + std::to_string(responderPort) +
            "/\n";
    WriteWholeFile(folder + "/" + name + ".ext", extensions);
    std::string problem = Run(folder, "openssl req " + std::string(KeyOptions) + "-keyout " + name +
                                          ".key -out " + name + ".csr -subj /CN=server");
    if (problem.empty())
        problem =
            Run(folder, "openssl x509 -req -in " + name + ".csr -CA " + authority + ".pem -CAkey " +
                            authority + ".key -set_serial 0x" + SerialNumber +
                            " -days 30 -extfile " + name + ".ext -out " + name + ".crt");
    if (problem.empty())
        WriteWholeFile(folder + "/" + name + ".pem",
                       ReadWholeFile(folder + "/" + name + ".key") +
                           ReadWholeFile(folder + "/" + name + ".crt"));
    return problem;
}

// Reads one request of HTTP with a body: the body.
static std::string ReadRequest(int connection)
{
    std::string request;
    char block[4096];
    for (;;) {
        const size_t head = request.find("\r\n\r\n");
        const size_t length = request.find("Content-Length: ");
        if (head != std::string::npos && length != std::string::npos &&
            request.size() >= head + 4 + strtoul(request.c_str() + length + 16, nullptr, 10))
            return request.substr(head + 4);
        const ssize_t count = read(connection, block, sizeof block);
        if (count <= 0)
            return "";
        request.append(block, static_cast<size_t>(count));
    }
}

static void Answer(int connection, const std::string& folder, const std::string& authority)
{
    WriteWholeFile(folder + "/request.der", ReadRequest(connection));
    Run(folder, "openssl ocsp -index index.txt -CA " + authority + ".pem -rsigner " + authority +
                    ".pem -rkey " + authority + ".key -reqin request.der -respout response.der");
    const std::string body = ReadWholeFile(folder + "/response.der");
    const std::string answer =
        "HTTP/1.0 200 OK\r\nContent-Type: application/ocsp-response\r\nContent-Length: " +
        std::to_string(body.size()) + "\r\n\r\n" + body;
    if (write(connection, answer.data(), answer.size()) < 0)
        return;
}

pid_t StartResponder(const std::string& folder, const std::string& authority, uint32_t port,
                     bool isRevoked)
{
    const std::string dates =
        isRevoked ? "R\t491231235959Z\t250101000000Z\t" : "V\t491231235959Z\t\t";
    WriteWholeFile(folder + "/index.txt", dates + SerialNumber + "\tunknown\t/CN=server\n");
    const int listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const int on = 1;
    setsockopt(listener, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (bind(listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        listen(listener, 5) != 0) {
        close(listener);
        return 0;
    }
    const pid_t responder = fork();
    if (responder == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (;;) {
            const int connection = accept(listener, nullptr, nullptr);
            Answer(connection, folder, authority);
            close(connection);
        }
    }
    close(listener);
    return responder;
}

void StopResponder(pid_t responder)
{
    if (responder <= 0)
        return;
    kill(responder, SIGKILL);
    waitpid(responder, nullptr, 0);
}
