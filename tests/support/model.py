"""A scripted model behind a real server on loopback."""
import json
import socket
import struct
import sys
import time
from http.server import BaseHTTPRequestHandler, ThreadingHTTPServer
from pathlib import Path

PROMPTS = Path(__file__).parent.parent.parent / "prompts"


def spec(**more):
    return {"title": "Задача", "requirements": ["Работает"], "acceptance_criteria": ["Работает"], "questions": []} | more


def plan(*nodes):
    """`nodes` are pairs of a kind and an input; their ids count from 1."""
    return {"nodes": [{"id": str(number), "title": f"Узел {number}", "kind": kind, "input": given, "dependencies": []}
                      for number, (kind, given) in enumerate(nodes, 1)]}


def tool(program, *arguments):
    return "tool", {"program": program, "arguments": list(arguments)}


def page(path, content):
    return {"files": [{"path": path, "content": content}]}


def verdict(*issues):
    return {"verdict": "REVISE" if issues else "APPROVE", "issues": issues, "required_changes": issues,
            "confidence": 0.9}


class Model(ThreadingHTTPServer):
    """A chat completions server on loopback. `answers` has, by role, an answer or a function of the request's input;
    who is not in it agrees with everything. `pace` are the seconds between pieces of an answer. `broken`, a status and
    a body, answers instead; without a status the connection is cut."""
    daemon_threads = True
    prompts = {path.read_bytes().decode(): path.stem for path in PROMPTS.glob("*.md")}

    def __init__(self):
        super().__init__(("127.0.0.1", 0), ModelConnection)
        self.url = f"http://127.0.0.1:{self.server_port}/v1"
        self.answers, self.asked, self.inputs, self.headers, self.bodies = {}, [], [], [], []
        self.broken, self.pace = None, 0

    def options(self):
        return "--endpoint", self.url, "--model", "any"

    def answer(self, role, given):
        usual = {"orchestrator": spec(), "structure": {"items": ["Один файл"]},
                 "coordinator": {"needs_user": False, "summary": "Ясно"}}
        reviews = any(word in role for word in ("judge", "reviewer", "validator"))
        answer = self.answers.get(role, usual.get(role, verdict() if reviews else {"summary": "Готово"}))
        return answer(given) if callable(answer) else answer

    def handle_error(self, *request):
        if not isinstance(sys.exception(), OSError):  # The program may leave at any time.
            super().handle_error(*request)


class ModelConnection(BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"

    def do_POST(self):
        body = json.loads(self.rfile.read(int(self.headers["Content-Length"])))
        model = self.server
        model.headers.append(self.headers)
        model.bodies.append(body)
        if model.broken:
            return self.fail(*model.broken)
        system, given = (message["content"] for message in body["messages"][:2])
        role = next((role for prompt, role in model.prompts.items() if system.startswith(prompt)), "")
        given = json.JSONDecoder().raw_decode(given)[0]  # Some models want a word of their own behind it.
        model.asked.append(role)
        model.inputs.append(given)
        text = json.dumps(model.answer(role, given), ensure_ascii=False)
        self.send_response(200)
        self.send_header("Content-Type", "text/event-stream")
        self.send_header("Transfer-Encoding", "chunked")
        self.end_headers()
        for piece in (text[:7], text[7:]):
            self.event({"choices": [{"delta": {"content": piece}}]})
            time.sleep(model.pace)
        self.event({"choices": [{"delta": {}, "finish_reason": "stop"}],
                    "usage": {"prompt_tokens": 11, "completion_tokens": 7}})
        self.chunk(b"data: [DONE]\n\n")
        self.chunk(b"")

    def event(self, event):
        self.chunk(b"data: " + json.dumps(event).encode() + b"\n\n")

    def chunk(self, data):
        self.wfile.write(b"%x\r\n%b\r\n" % (len(data), data))

    def fail(self, status, body=b""):
        if not status:
            self.connection.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
            self.close_connection = True
            return self.connection.close()
        self.send_response(status)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def log_message(self, *_):
        pass
