"""Tells two interleaved spirals apart with a small neural network, in plain Python.

A run is told by two environment variables where its result and its telemetry go. Without them it only prints.
"""

import json
import math
import os
import random
import time

HIDDEN = 12
LEARNING_RATE = 0.05
EPOCHS = 30
POINTS = 200  # of each spiral
NOISE = 0.05

SEED = 1
TEST_SHARE = 0.3


def make_points(rng):
    """Gives a training and a test set of ((x, y), class) with as many points of either class."""
    points = []
    for label in (0, 1):
        for _ in range(POINTS):
            turn = 0.5 + 3.0 * math.sqrt(rng.random())
            angle = turn + label * math.pi
            x = turn / 3.5 * math.cos(angle) + rng.gauss(0, NOISE)
            y = turn / 3.5 * math.sin(angle) + rng.gauss(0, NOISE)
            points.append(((x, y), label))
    rng.shuffle(points)
    test_size = round(len(points) * TEST_SHARE)
    return points[test_size:], points[:test_size]


class Network:
    """One hidden layer of tanh units and a logistic output."""

    def __init__(self, rng):
        self.hidden = [[rng.gauss(0, 1.5) for _ in range(3)] for _ in range(HIDDEN)]
        self.output = [rng.gauss(0, 0.5) for _ in range(HIDDEN + 1)]

    def forward(self, point):
        x, y = point
        units = [math.tanh(a * x + b * y + c) for a, b, c in self.hidden]
        score = self.output[-1] + sum(w * u for w, u in zip(self.output, units))
        return units, 1 / (1 + math.exp(-max(-30.0, min(30.0, score))))

    def learn(self, point, label):
        """Takes one step down the gradient of the cross entropy of one point."""
        x, y = point
        units, chance = self.forward(point)
        error = chance - label
        for index, unit in enumerate(units):
            back = error * self.output[index] * (1 - unit * unit)
            self.output[index] -= LEARNING_RATE * error * unit
            weights = self.hidden[index]
            weights[0] -= LEARNING_RATE * back * x
            weights[1] -= LEARNING_RATE * back * y
            weights[2] -= LEARNING_RATE * back
        self.output[-1] -= LEARNING_RATE * error

    def measure(self, points):
        """Gives the mean cross entropy and the share of points that come out right."""
        loss, right = 0.0, 0
        for point, label in points:
            _, chance = self.forward(point)
            loss -= math.log(chance if label else 1 - chance)
            right += (chance > 0.5) == bool(label)
        return {"loss": loss / len(points), "accuracy": right / len(points)}


def report(step, train, test):
    print(f"epoch {step:3d}  train loss {train['loss']:.4f}  test accuracy {test['accuracy']:.3f}", flush=True)
    if path := os.environ.get("HARROWICK_TELEMETRY_PATH"):
        with open(path, "a") as file:
            file.write(json.dumps({"step": step, "train": train, "test": test}) + "\n")


def main():
    started = time.monotonic()
    rng = random.Random(SEED)
    training, held_back = make_points(rng)
    network = Network(rng)
    for epoch in range(1, EPOCHS + 1):
        rng.shuffle(training)
        for point, label in training:
            network.learn(point, label)
        test = network.measure(held_back)
        report(epoch, network.measure(training), test)

    result = {
        "test_accuracy": round(test["accuracy"], 4),
        "test_loss": round(test["loss"], 4),
        "seconds": round(time.monotonic() - started, 2),
    }
    print(f"result {json.dumps(result)}")
    if path := os.environ.get("HARROWICK_RESULT_PATH"):
        with open(path, "w") as file:
            file.write(json.dumps(result) + "\n")


if __name__ == "__main__":
    main()
