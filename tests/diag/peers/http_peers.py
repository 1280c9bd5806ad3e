#!/usr/bin/env python3
"""HTTP servers on 127.0.0.1 for the reachability tests, good and broken.

    http_peers.py MODE PORT [CERT KEY]

MODE: ok       a plain HTTP server (GET / answers 200 with a short body)
      tls      the same over TLS with CERT and KEY
      garbage  sends bytes that are no HTTP response, then closes
      half     sends half a response head, then closes
      endless  sends a chunked body that never ends, until the client goes
Runs until killed.
"""
import http.server
import socket
import ssl
import sys
import threading
import time


class Ok(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        body = b"reachable\n"
        self.send_response(200)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *args):
        pass


def serve_http(port, cert=None, key=None):
    server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Ok)
    if cert:
        context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
        context.load_cert_chain(cert, key)
        server.socket = context.wrap_socket(server.socket, server_side=True)
    server.serve_forever()


def broken(connection, mode):
    try:
        connection.recv(4096)
        if mode == "garbage":
            connection.sendall(b"\x00\x01SSH-2.0-not-http\r\n\xff\xfe" * 4)
        elif mode == "half":
            connection.sendall(b"HTTP/1.1 200 OK\r\nContent-Le")
        elif mode == "endless":
            connection.sendall(b"HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n")
            chunk = b"400\r\n" + b"x" * 1024 + b"\r\n"
            while True:
                connection.sendall(chunk)
                time.sleep(0.001)
    except OSError:
        pass
    finally:
        connection.close()


def serve_broken(port, mode):
    listener = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    listener.bind(("127.0.0.1", port))
    listener.listen(64)
    while True:
        connection, _ = listener.accept()
        threading.Thread(target=broken, args=(connection, mode), daemon=True).start()


def main():
    mode, port = sys.argv[1], int(sys.argv[2])
    if mode == "ok":
        serve_http(port)
    elif mode == "tls":
        serve_http(port, sys.argv[3], sys.argv[4])
    elif mode in ("garbage", "half", "endless"):
        serve_broken(port, mode)
    else:
        sys.exit("unknown mode " + mode)


if __name__ == "__main__":
    main()
