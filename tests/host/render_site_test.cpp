// tests/host/render_site_test.cpp - the program on the real browser runtime: pages of a site, which
// get headers, cookies and proxies, and do not always come.
#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <utility>

#include "tests/host/render_fixture.h"

namespace pennywort::host {
namespace {

// A page that is white where the request had all that the address asks for, and a few that are no
// page.
constexpr const char* k_site = R"py(
        where = urllib.parse.urlparse(self.path)
        if where.path.endswith('/never'):
            open('asked', 'a').write(where.path)
            threading.Event().wait()
        if where.path == '/waits':
            return self.reply(200, 'text/html', open('waits.html', 'rb').read())
        if where.path.endswith('/nothing'):
            self.send_response(204); self.send_header('Content-Length', '0'); self.end_headers(); return
        if where.path == '/kept':
            body = b'<!doctype html><style>html{background:%s}</style>' % open('colour', 'rb').read().strip()
            self.send_response(200); self.send_header('Cache-Control', 'max-age=3600')
            self.send_header('Content-Type', 'text/html'); self.send_header('Content-Length', str(len(body)))
            self.end_headers(); self.wfile.write(body); return
        if where.path.endswith('/file'):
            return self.reply(200, 'application/octet-stream', b'binary')
        wanted = urllib.parse.parse_qs(where.query)
        have = all(value in self.headers.get(name, '') for name, values in wanted.items() for value in values)
        page = '<!doctype html><style>html{background:%s}</style>' % ('#fff' if have else '#000')
        self.reply(404 if where.path.endswith('/missing') else 200, 'text/html', page.encode())
)py";

class RenderSite : public RenderFixture {
protected:
    RenderSite() { write_site(k_site); }
};

TEST_F(RenderSite, GetsTheHeadersAndCookies) {
    const auto run = served(
        "pennywort render \"$at/?X-Key=secret,%20second&Cookie=session=42&Cookie=theme=dark&"
        "User-Agent=Me/2&Accept-Language=nb\" --size 16x16 --header 'X-Key: secret' "
        "--header 'x-key: second' --cookie session=42 --cookie theme=dark --user-agent Me/2 "
        "--locale nb-NO -o a.png");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(pixel("a.png", 8, 8), k_white);
}

// Last week's logo would be on air.
TEST_F(RenderSite, IsAskedAnewByEachRun) {
    const auto run = served(
        "echo '#fff' >colour; pennywort render $at/kept --size 16x16 -o a.png && "
        "echo '#000' >colour; pennywort render $at/kept --size 16x16 -o b.png && "
        "echo '#fff' >colour; pennywort render $at/kept --live --size 16x16 -o c.png");
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_EQ(pixel("a.png", 8, 8), k_white);
    EXPECT_EQ(pixel("b.png", 8, 8), k_black);
    EXPECT_EQ(pixel("c.png", 8, 8), k_white);
}

TEST_F(RenderSite, IsAskedThroughTheProxy) {
    for (const char* proxy : {"$at", "$at/", "${at#http://}"}) {
        const auto run = served(
            "rm -f a.png; pennywort render http://no-such-host.invalid/?Host=no-such-host --size "
            "16x16 --proxy " +
            std::string(proxy) + " -o a.png");
        EXPECT_EQ(run.status, 0) << proxy << run.errors;
        EXPECT_EQ(pixel("a.png", 8, 8), k_white) << proxy;
    }
}

struct never_case {
    const char* name;
    const char* body;
};
void PrintTo(const never_case& c, std::ostream* out) { *out << c.name; }

class RenderWithout : public RenderSite, public testing::WithParamInterface<never_case> {};

// The default is to wait for all that a page names.
TEST_P(RenderWithout, WhatNeverComesAPageIsShownByOneThatDoesNotWaitForIt) {
    folder.write("waits.html", std::string("<!doctype html><style>html{background:#fff}</style>"
                                           "<script>window.isReady = true</script>") +
                                   GetParam().body);
    const auto run = served(
        "film=\"pennywort render $at/waits --size 16x16\"\n"
        "$film --timeout 5 -o all.png; echo $?\n"
        "rm asked; $film --timeout 60 --start dom -o dom.png; echo $?; cat asked; echo\n"
        "rm asked; $film --timeout 60 --start window.isReady --frames 5 -o truth.png; echo $?\n"
        "cat asked");
    EXPECT_EQ(run.output, "1\n0\n/never\n0\n/never") << run.errors;
    EXPECT_EQ(pixel("dom.png", 15, 15), k_white);
    EXPECT_EQ(pixel("truth.png", 15, 15), k_white);
    EXPECT_NE(run.errors.find("has not loaded within 5 s"), std::string::npos) << run.errors;
    const auto told = run.errors.find("has held the time of the page for 0.5 s");
    EXPECT_NE(told, std::string::npos) << run.errors;
    EXPECT_NE(run.errors.find("/never\n", told), std::string::npos) << run.errors;
}

INSTANTIATE_TEST_SUITE_P(
    As, RenderWithout,
    testing::Values(never_case{"AnImage", "<img src=/never>"},
                    never_case{"AFont",
                               "<style>@font-face{font-family:late;src:url(/never)}</style>"
                               "<p style='font-family:late'>text"},
                    never_case{"AFrame", "<iframe src=/never width=8 height=8></iframe>"}),
    [](const auto& one) { return std::string(one.param.name); });

TEST_F(RenderSite, ThatMovesOnToAPageThatNeverComesIsToldItsAddress) {
    folder.write("waits.html",
                 "<!doctype html><script>setTimeout(() => location = '/never', 100)</script>");
    const auto run =
        served("pennywort render $at/waits --size 16x16 --start dom --frames 20 -o a.mkv");
    EXPECT_EQ(run.status, 1);
    const auto told = run.errors.find("the page moves on to another one, which does not come: ");
    ASSERT_NE(told, std::string::npos) << run.errors;
    EXPECT_NE(run.errors.find("/never", told), std::string::npos) << run.errors;
}

TEST_F(RenderSite, OfAServerThatNobodyVouchesForIsShownOnlyWhereTheUserTrustsIt) {
    const std::string plain = folder.read("server.py");
    const auto end = plain.find("print(server");
    folder.write("server.py", plain.substr(0, end) + R"py(
import ssl
context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
context.load_cert_chain('own.pem', 'own.key')
server.socket = context.wrap_socket(server.socket, server_side=True)
)py" + plain.substr(end));
    expect_fine(
        "openssl req -x509 -newkey rsa:2048 -nodes -keyout own.key -out own.pem -days 2 "
        "-subj /CN=127.0.0.1 -addext subjectAltName=IP:127.0.0.1");
    const auto run = served(
        "film=\"pennywort render https://127.0.0.1:$port/ --size 16x16\"\n"
        "$film -o refused.png; echo $?\n"
        "$film --ignore-certificate-errors -o trusted.png; echo $?");
    EXPECT_EQ(run.output, "1\n0\n") << run.errors;
    EXPECT_NE(run.errors.find("ERR_CERT_AUTHORITY_INVALID"), std::string::npos) << run.errors;
    EXPECT_FALSE(folder.has("refused.png"));
    EXPECT_EQ(pixel("trusted.png", 8, 8), k_white);
}

TEST_F(RenderSite, ThatHasNoPageIsToldAtOnce) {
    for (const auto& [path, part] :
         {std::pair("nothing", "status 204"), std::pair("file", "it is a download")}) {
        for (const char* way : {"", "--live "}) {
            const auto run =
                served(std::string("SECONDS=0; pennywort render $at/") + path + " " + way +
                       "--frames 2 -o a.png; status=$?; echo $SECONDS; exit $status");
            EXPECT_EQ(run.status, 1) << path << way;
            EXPECT_NE(run.errors.find(part), std::string::npos) << way << run.errors;
            EXPECT_LT(std::stoi(run.output), 15) << "and not only when its time is over";
        }
    }
}

TEST_F(RenderSite, AnErrorPageOfTheServersEndsTheFilmWhereverItComes) {
    folder.write("moves",
                 "<!doctype html><style>html{background:#fff}</style>"
                 "<script>setTimeout(() => location.href = '@/missing', 200)</script>");
    for (const char* page : {"moves.html", "$at/missing"}) {
        for (const char* way : {"", "--live "}) {
            const auto run =
                served("sed \"s|@|$at|\" moves > moves.html\npennywort render " +
                       std::string(page) + " " + way + "--size 16x16 --frames 60 -o a.mkv");
            EXPECT_EQ(run.status, 1) << page << way;
            EXPECT_NE(run.errors.find("/missing: the server answered with status 404"),
                      std::string::npos)
                << page << way << run.errors;
        }
    }
}

}  // namespace
}  // namespace pennywort::host
