#!/usr/bin/env python3
"""Compares the HTTP client with plain libcurl, in turns, and prints a table with the medians.

usage: bench/httpclient/run.py [--build build/release] [--rounds 7] [--seconds 2] [--only NAME;...]

Build first: cmake --preset release -DPENNYWORT_BENCH=ON && cmake --build build/release
             --target http_client_bench http_client_bench_server
"""
import argparse
import contextlib
import http.server
import json
import pathlib
import ssl
import statistics
import subprocess
import tempfile
import threading


def run(folder, *arguments):
    out = subprocess.run([folder / "http_client_bench", *map(str, arguments)], check=True,
                         capture_output=True, text=True)
    return json.loads(out.stdout)


@contextlib.contextmanager
def plain_server(folder):
    process = subprocess.Popen([folder / "http_client_bench_server"], stdin=subprocess.PIPE,
                               stdout=subprocess.PIPE)
    try:
        yield f"http://127.0.0.1:{int(process.stdout.readline())}"
    finally:
        process.stdin.close()
        process.wait()


class Kibibyte(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        self.send_response(200)
        self.send_header("Content-Length", "1024")
        self.end_headers()
        self.wfile.write(b"x" * 1024)

    def log_message(self, *_):
        pass


@contextlib.contextmanager
def tls_server(folder):
    """Yields its URL and the file of its certificate."""
    key, certificate = folder / "key.pem", folder / "certificate.pem"
    subprocess.run(["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt",
                    "ec_paramgen_curve:prime256v1", "-nodes", "-days", "1", "-subj", "/CN=localhost",
                    "-addext", "subjectAltName=IP:127.0.0.1", "-keyout", key, "-out", certificate],
                   check=True, capture_output=True)
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(certificate, key)
    server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Kibibyte)
    server.socket = context.wrap_socket(server.socket, server_side=True)
    thread = threading.Thread(target=server.serve_forever)
    thread.start()
    try:
        yield f"https://127.0.0.1:{server.server_port}/", certificate
    finally:
        server.shutdown()
        thread.join()


def cells(folder, seconds, scratch):
    """(name, unit, whether more is better, figures of one run of `who`)"""
    with plain_server(folder) as url, tls_server(scratch) as (tls_url, certificate):
        for verb in ("get", "post"):
            for threads in (1, 16):
                name = f"{verb} of 1 KiB, {threads} thread{'s' * (threads > 1)}"
                yield name, lambda who, v=verb, t=threads: run(folder, who, v, t, seconds, url + "/")
        yield "1 GiB, dropped", lambda who: run(folder, who, "download", url + "/large")
        yield "1 GiB into a sink", lambda who: run(folder, who, "sink", url + "/large")
        yield "first request", lambda who: run(folder, who, "first", url + "/")
        yield "first request, TLS", lambda who: run(folder, who, "first", tls_url, certificate)


def line(name, figure, results):
    own = statistics.median(each[figure] for each in results["own"])
    curl = statistics.median(each[figure] for each in results["curl"])
    ratios = [one[figure] / other[figure] for one, other in zip(results["own"], results["curl"])]
    return (f"| {name} | {figure} | {own:,.1f} | {curl:,.1f} | {statistics.median(ratios):.3f} "
            f"| {min(ratios):.2f} to {max(ratios):.2f} |")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", type=pathlib.Path, default=pathlib.Path("build/release"))
    parser.add_argument("--rounds", type=int, default=7)
    parser.add_argument("--seconds", type=float, default=2)
    parser.add_argument("--only", default="")
    options = parser.parse_args()
    wanted = [each for each in options.only.split(";") if each]
    print("| what | figure | ours | libcurl | ratio, median of the rounds | rounds |\n|---|---|---|---|---|---|")
    with tempfile.TemporaryDirectory() as scratch:
        for name, measure in cells(options.build / "bin", options.seconds, pathlib.Path(scratch)):
            if wanted and not any(each in name for each in wanted):
                continue
            results = {"own": [], "curl": []}
            for index in range(options.rounds):
                # In turns, and the other one first each time: what warms up helps both.
                for who in ("own", "curl") if index % 2 == 0 else ("curl", "own"):
                    results[who].append(measure(who))
            for figure in results["own"][0]:
                print(line(name, figure, results), flush=True)


if __name__ == "__main__":
    main()
