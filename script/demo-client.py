#!/usr/bin/env python3
"""Plays an agent: speaks MCP with the server that a configuration block names, and experiments with examples/iris.

script/demo starts it. It says in plain words what it is about to ask, shows the answer indented below, checks every
answer, and ends with status 1 and one line at the first that is off.
"""

import argparse
import json
import os
import queue
import re
import shlex
import subprocess
import sys
import threading
import time
from dataclasses import dataclass
from pathlib import Path

PROTOCOL = "2025-06-18"
ANSWER_SECONDS = 60  # how long an answer may take; a progress notice begins the time anew
TEST_FLOWERS = 45  # of the example: what its accuracy is a share of


class Failure(Exception):
    """Something is not as it should be; the text says what."""


# What the person sees


COLOUR = sys.stdout.isatty() and not os.environ.get("NO_COLOR")


def styled(code, text):
    return f"\x1b[{code}m{text}\x1b[0m" if COLOUR else text


def say(text):
    print(text, flush=True)


def show(text):
    say("\n".join("    " + line if line else "" for line in text.split("\n")))


def heading(text):
    say("\n" + styled("1", text))


# The connection


class Server:
    """An MCP server as a child process, one JSON object a line each way."""

    def __init__(self, command, arguments):
        self.process = subprocess.Popen([command, *arguments], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        self.lines = queue.Queue()
        self.last_id = 0
        threading.Thread(target=self._read, daemon=True).start()

    def _read(self):
        for line in self.process.stdout:
            self.lines.put(line)
        self.lines.put(None)

    def _write(self, message):
        try:
            self.process.stdin.write(json.dumps(message).encode() + b"\n")
            self.process.stdin.flush()
        except BrokenPipeError:
            raise Failure("the server is gone") from None

    def notify(self, method):
        self._write({"jsonrpc": "2.0", "method": method})

    def send(self, method, params):
        """Sends a request, whose result is asked for with result()."""
        self.last_id += 1
        self._write({"jsonrpc": "2.0", "id": self.last_id, "method": method, "params": params})

    def result(self):
        """Gives the result of the request that was sent last. Shows the progress notices that come before it."""
        while True:
            try:
                line = self.lines.get(timeout=ANSWER_SECONDS)
            except queue.Empty:
                raise Failure(f"no answer within {ANSWER_SECONDS} seconds") from None
            if line is None:
                raise Failure("the server ended before it answered")
            message = json.loads(line)
            if message.get("method") == "notifications/progress":
                show(styled("2", "(" + message["params"].get("message", "still waiting") + ")"))
            elif message.get("id") == self.last_id:
                if "error" in message:
                    raise Failure(f"a request was refused: {message['error']['message']}")
                return message["result"]

    def request(self, method, params):
        self.send(method, params)
        return self.result()

    def send_call(self, tool, **arguments):
        """Calls a tool, whose text is asked for with text()."""
        token = f"demo-{self.last_id + 1}"
        self.send("tools/call", {"name": tool, "arguments": arguments, "_meta": {"progressToken": token}})

    def text(self):
        """Gives the text that the tool which was called last answers with."""
        result = self.result()
        text = result["content"][0]["text"]
        if result["isError"]:
            raise Failure(f"a tool failed: {text}")
        return text

    def close(self):
        """Ends the server the way a client does, by closing its input."""
        self.process.stdin.close()
        try:
            status = self.process.wait(timeout=10)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise Failure("the server did not end when its input was closed") from None
        if status != 0:
            raise Failure(f"the server ended with status {status}")

    def kill(self):
        self.process.kill()
        self.process.wait()


# The person


class Person:
    """Plays the person at a terminal: finds the agent's questions and answers them with `veltry`."""

    def __init__(self, veltry, store, project):
        self.veltry = veltry
        self.common = ["--db", store, "--project", project]

    def _call(self, *arguments):
        done = subprocess.run([self.veltry, *arguments, *self.common], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Failure(done.stderr.strip())
        return done

    def find(self):
        """Gives the id of the round that is open, and how `veltry questions` shows it, once there is one."""
        deadline = time.monotonic() + ANSWER_SECONDS
        while time.monotonic() < deadline:
            if rounds := json.loads(self._call("questions", "--json").stdout):
                return rounds[0]["id"], self._call("questions").stdout.rstrip("\n")
            time.sleep(0.1)
        raise Failure("the questions do not reach the person")

    def answer(self, round_id, *options):
        """Closes an open round; gives what the person typed, and what was said to it."""
        done = self._call("answer", round_id, *options)
        return shlex.join(["veltry", "answer", round_id[:8], *options]) + "\n" + done.stderr.rstrip("\n")


# What the answers hold


@dataclass
class Node:
    """An experiment: a node of the tree."""

    title: str
    id: str
    branch: str
    worktree: Path


@dataclass
class Run:
    """A run of a node, and what became of it as far as that is known."""

    node: Node
    number: int
    folder: Path = None
    result: dict = None


def found(pattern, text, what):
    """Gives the groups of a pattern that an answer must hold."""
    match = re.search(pattern, text, re.MULTILINE)
    if not match:
        raise Failure(f"the answer does not tell {what}:\n{text}")
    return match.groups()


def asked(words, tool=None):
    """Says what is going to be asked, before it is."""
    say("\n" + styled("1;36", "→ " + words) + (styled("2", f"  [{tool}]") if tool else ""))


class Demo:
    """The main job, step by step."""

    def __init__(self, server, person):
        self.server = server
        self.person = person

    def ask(self, words, tool, **arguments):
        asked(words, tool)
        self.server.send_call(tool, **arguments)
        text = self.server.text()
        show(text)
        return text

    def greet(self):
        asked("Saying hello, and asking how to work here", "initialize")
        client = {"name": "veltry-demo", "version": "1"}
        params = {"protocolVersion": PROTOCOL, "capabilities": {}, "clientInfo": client}
        hello = self.server.request("initialize", params)
        self.server.notify("notifications/initialized")
        about, instructions = hello["serverInfo"], hello["instructions"].split("\n")
        show(f"{about['name']} {about['version']}, protocol {hello['protocolVersion']}")
        show(f"Instructions of {len(instructions)} lines; the first:\n  {instructions[0]}")
        show("and the last, about this machine:\n" + "\n".join("  " + line for line in instructions[-5:]))

        asked("Asking which tools there are", "tools/list")
        tools = [tool["name"] for tool in self.server.request("tools/list", {})["tools"]]
        show(f"{len(tools)} tools: {', '.join(tools)}")
        needed = {"experiment_tree", "create_experiment", "run_experiment", "wait_for_runs", "get_run"}
        if missing := needed - set(tools):
            raise Failure(f"tools are missing: {', '.join(sorted(missing))}")

    def create(self, words, title, **arguments):
        text = self.ask(words, "create_experiment", title=title, **arguments)
        node_id, branch = found(r"^Created .* \((\S+)\) on (\S+)\.$", text, "the node's id and branch")
        (worktree,) = found(r"^Worktree: (.+)$", text, "where the worktree lies")
        if not (Path(worktree) / "train.py").is_file():
            raise Failure(f"there is no train.py in {worktree}")
        return Node(title, node_id, branch, Path(worktree))

    def set_constant(self, node, name, value):
        """Changes a constant in the node's own copy of the code, as an agent does with tools of its own."""
        asked(f"Editing train.py in the worktree of “{node.title}”")
        file = node.worktree / "train.py"
        text = file.read_text()
        old = found(rf"^({name} = .*)$", text, name)[0]
        file.write_text(text.replace(old, f"{name} = {value}", 1))
        show(styled("31", f"- {old}") + "\n" + styled("32", f"+ {name} = {value}"))

    def start(self, node):
        text = self.ask(f"Running “{node.title}”", "run_experiment", experiment_id=node.id)
        (number,) = found(r"^Run (\d+) started", text, "the run's number")
        return Run(node, int(number))

    def wait(self, words):
        """Waits until nothing is in flight any more."""
        while True:
            text = self.ask(words, "wait_for_runs", timeout_seconds=60)
            if text == "Nothing is in flight." or text.endswith("\n0 still in flight."):
                return
            if text.startswith("No run finished"):
                raise Failure("a training of a few seconds took more than a minute")
            words = "Waiting for the next one"

    def read(self, run):
        text = self.ask(f"Reading run {run.number}", "get_run", run=str(run.number), log_lines=3)
        (status,) = found(r"^status: (.+)$", text, "the run's status")
        (folder,) = found(r"^directory: (.+)$", text, "the run's folder")
        run.folder = Path(folder)
        if status != "succeeded":
            raise Failure(f"run {run.number} {status}; its log is {run.folder / 'log'}")
        (result,) = found(r"^result: (\{.*\})$", text, "the run's result")
        run.result = json.loads(result)

    def ask_person(self):
        """Asks the person what the runs are compared by; gives the name of that number."""
        which = "Which number decides between the runs?"
        tie = "And if two runs are equal by it?"
        options = [
            {"label": "test_accuracy", "description": "The share of the test flowers that it tells right."},
            {"label": "test_loss", "description": "How sure it is of what is right."},
        ]
        asked("Asking the person, and waiting for the answers", "ask_user")
        self.server.send_call("ask_user", questions=[{"question": which, "options": options}, {"question": tie}])

        round_id, questions = self.person.find()
        say("\nMeanwhile the person sees, by veltry questions:")
        show(questions)
        say("\nand answers with the same words as a script would (veltry answer 1 asks one after the other):")
        words = "Then the one with the lower loss."
        show(self.person.answer(round_id, "--choose", "1:test_accuracy", "--other", f"2:{words}"))

        say("\nThe agent's call ends with")
        text = self.server.text()
        show(text)
        if text != f"1. {which}\n   Chose: test_accuracy\n2. {tie}\n   In their words: {words}":
            raise Failure("that is not what the person answered")
        return found(r"^   Chose: (\w+)$", text, "what was chosen")[0]

    def play(self):
        heading("The agent looks around")
        self.greet()
        found(r"^The tree is empty\.", self.ask("Looking at the experiment tree", "experiment_tree"), "an empty tree")

        heading("A baseline: the code as it is")
        node = self.create(
            "Creating a baseline, whose command every node below it runs",
            "Baseline",
            description="Softmax regression as committed: the number to beat.",
            run_command="python3 train.py",
        )
        baseline = self.start(node)
        self.wait("Waiting for it to finish")
        self.read(baseline)

        heading("A question that only the person can answer")
        criterion = self.ask_person()

        heading("Two ideas on top of it, measured the same way and at the same time")
        faster = self.create(
            "Creating a child for a higher learning rate",
            "Learning rate 0.05",
            description="The loss still falls at the end, so take bigger steps: 0.05 for 0.001.",
            parent_id=node.id,
        )
        longer = self.create(
            "Creating a child for a longer training",
            "16000 epochs",
            description="The loss still falls at the end, so go on for twice as long.",
            parent_id=node.id,
        )
        self.set_constant(faster, "LEARNING_RATE", "0.05")
        self.set_constant(longer, "EPOCHS", "16000")
        children = [self.start(faster), self.start(longer)]
        self.wait("Waiting for whichever finishes first")
        for run in children:
            self.read(run)

        heading("What came of it")
        runs = [baseline, *children]
        best = max(runs, key=lambda run: (run.result[criterion], -run.result["test_loss"]))
        notes = comparison(best, baseline)
        words = f"Noting the outcome on “{best.node.title}”"
        answer = self.ask(words, "set_experiment_notes", experiment_id=best.node.id, notes=notes)
        found(r"^Notes saved\.$", answer, "that the notes are saved")
        tree = self.ask("Looking at the tree again", "experiment_tree")
        for run in runs:
            found(rf"^ *- {re.escape(run.node.title)} \[frozen\]", tree, f"that {run.node.title} is answered")


# What is made of the answers


def comparison(best, baseline):
    """What the run with the best result shows against the baseline, and what it doesn't show."""
    if best is baseline:
        return "Nothing beats the baseline."
    right, right_before = (round(run.result["test_accuracy"] * TEST_FLOWERS) for run in (best, baseline))
    loss, loss_before = best.result["test_loss"], baseline.result["test_loss"]
    return (
        f"“{best.node.title}” tells {right} of {TEST_FLOWERS} test flowers right, the baseline {right_before}: so few "
        f"flowers can't tell the two apart.\nIts test loss on them is {loss:.4f} against {loss_before:.4f}."
    )


def read_block(path):
    """Gives command and arguments of the server in a configuration block that may have other lines around it."""
    lines = path.read_text().split("\n")
    try:
        first = next(i for i, line in enumerate(lines) if line.startswith("{"))
        last = max(i for i, line in enumerate(lines) if line.startswith("}"))
        entry = json.loads("\n".join(lines[first : last + 1]))["mcpServers"]["veltry"]
        return entry["command"], entry["args"]
    except (StopIteration, ValueError, KeyError, TypeError) as problem:
        raise Failure(f"{path} holds no configuration block: {problem!r}") from None


def check_places(options, below):
    """Makes sure that the demo touches no store but its own."""
    for name in ("--db", "--runs", "--settings"):
        if not Path(options.get(name, "/")).is_relative_to(below):
            raise Failure(f"{name} does not lie below {below}: {options.get(name)}")


def main():
    parser = argparse.ArgumentParser(description="Plays an agent against an MCP server.")
    parser.add_argument("--config", type=Path, required=True, help="file with the configuration block")
    parser.add_argument("--below", type=Path, required=True, help="folder that the store must lie below")
    options = parser.parse_args()
    sys.stdout.reconfigure(errors="replace")  # not every terminal speaks UTF-8

    server = None
    try:
        command, arguments = read_block(options.config)
        named = dict(zip(arguments[1::2], arguments[2::2]))
        check_places(named, options.below)
        if "--conversation" not in named:
            raise Failure("the server serves no conversation, so nobody can be asked")
        say(styled("2", "$ " + shlex.join([command, *arguments])))
        server = Server(command, arguments)
        person = Person(Path(command).with_name("veltry"), named["--db"], named["--project"])
        Demo(server, person).play()
        server.close()
    except (Failure, OSError) as problem:
        sys.stdout.flush()
        print(f"demo: {problem}", file=sys.stderr)
        if server:
            server.kill()
        return 1
    except KeyboardInterrupt:
        if server:
            server.kill()
        return 130
    return 0


if __name__ == "__main__":
    sys.exit(main())
