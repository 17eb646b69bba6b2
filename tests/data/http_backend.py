"""http_backend.py SOCKET: an HTTP server on a local socket that tells what Python's own parsers made of a request.

GET /chunked    200,000 bytes in chunks of growing size
GET, POST /...  the method, the path with its query parsed, the cookies, then one line a form field:
                name|file name|type|bytes in hexadecimal
"""
import email.parser
import email.policy
import http.cookies
import http.server
import socketserver
import sys
import urllib.parse


def form_fields(kind, body):
    if kind.startswith("multipart/"):
        head = b"Content-Type: " + kind.encode() + b"\r\n\r\n"
        for part in email.parser.BytesParser(policy=email.policy.HTTP).parsebytes(head + body).iter_parts():
            name = part.get_param("name", header="content-disposition")
            yield name, part.get_filename() or "", part.get_content_type(), part.get_payload(decode=True)
    elif body:
        for name, value in urllib.parse.parse_qsl(body.decode(), keep_blank_values=True, strict_parsing=True):
            yield name, "", "", value.encode()


class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_GET(self):
        url = urllib.parse.urlsplit(self.path)
        if url.path == "/chunked":
            return self.send_chunks(bytes(i * i // 7 % 251 for i in range(200_000)))
        body = self.rfile.read(int(self.headers.get("Content-Length", 0)))
        lines = [f"{self.command} {url.path} {urllib.parse.parse_qsl(url.query, keep_blank_values=True)}"]
        cookies = http.cookies.SimpleCookie(self.headers.get("Cookie", ""))
        lines += [f"cookie {name}={cookies[name].value}" for name in sorted(cookies)]
        lines += [f"{n}|{f}|{t}|{b.hex()}" for n, f, t, b in form_fields(self.headers.get("Content-Type", ""), body)]
        answer = "\n".join(lines).encode()
        self.send_response(200)
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)

    do_POST = do_GET

    def send_chunks(self, data):
        self.send_response(200)
        self.send_header("Transfer-Encoding", "chunked")
        self.end_headers()
        size = 1
        while data:
            piece, data = data[:size], data[size:]
            self.wfile.write(b"%X\r\n%s\r\n" % (len(piece), piece))
            size = size * 2
        self.wfile.write(b"0\r\n\r\n")

    def log_message(self, *ignored):
        pass


class Server(socketserver.ThreadingMixIn, socketserver.UnixStreamServer):
    daemon_threads = True


with Server(sys.argv[1], Handler) as server:
    print("ready", flush=True)
    server.serve_forever()
