"""Trains a softmax classifier on the iris measurements. Plain Python: nothing to install.

A run is told where its result and its telemetry go by two environment variables; without them (a try by hand)
it only prints.
"""

import csv
import json
import math
import os
import random
import time
from pathlib import Path

LEARNING_RATE = 0.001
EPOCHS = 8000
WEIGHT_DECAY = 0.01

SEED = 7
TEST_SHARE = 0.3
REPORTS = 10  # how many times the training says where it stands


def read_flowers(path):
    """Gives the flowers as (measurements with a leading 1 for the bias, number of the species), and the species."""
    with path.open(newline="") as file:
        rows = list(csv.reader(file))[1:]
    species = sorted({row[-1] for row in rows})
    return [([1.0, *map(float, row[:-1])], species.index(row[-1])) for row in rows], species


def split(flowers):
    """Gives a training and a test set, the same ones for every run."""
    shuffled = list(flowers)
    random.Random(SEED).shuffle(shuffled)
    test_size = round(len(shuffled) * TEST_SHARE)
    return shuffled[test_size:], shuffled[:test_size]


def probabilities(weights, features):
    scores = [sum(w * x for w, x in zip(row, features)) for row in weights]
    highest = max(scores)
    powers = [math.exp(score - highest) for score in scores]
    total = sum(powers)
    return [power / total for power in powers]


def evaluate(weights, flowers):
    """Gives the mean cross entropy and the share of flowers whose species comes out right."""
    loss, right = 0.0, 0
    for features, label in flowers:
        chances = probabilities(weights, features)
        loss -= math.log(max(chances[label], 1e-300))
        right += chances.index(max(chances)) == label
    return loss / len(flowers), right / len(flowers)


def descend(weights, flowers):
    """Takes one step down the gradient of the whole training set."""
    gradient = [[0.0] * len(row) for row in weights]
    for features, label in flowers:
        for k, chance in enumerate(probabilities(weights, features)):
            error = chance - (k == label)
            row = gradient[k]
            for i, x in enumerate(features):
                row[i] += error * x
    for row, slope in zip(weights, gradient):
        for i in range(len(row)):
            decay = WEIGHT_DECAY * row[i] if i > 0 else 0.0  # the bias stays free
            row[i] -= LEARNING_RATE * (slope[i] / len(flowers) + decay)


def report(epoch, weights, training, test):
    """Prints where the training stands and, if somebody wants to draw it, appends a point to the telemetry."""
    train_loss, _ = evaluate(weights, training)
    loss, accuracy = evaluate(weights, test)
    losses = f"train loss {train_loss:.4f}  test loss {loss:.4f}"
    print(f"epoch {epoch:5d}  {losses}  test accuracy {accuracy:.3f}", flush=True)
    if path := os.environ.get("HARROWICK_TELEMETRY_PATH"):
        point = {"step": epoch, "train": {"loss": train_loss}, "eval": {"loss": loss, "accuracy": accuracy}}
        with open(path, "a") as file:
            file.write(json.dumps(point) + "\n")
    return loss, accuracy


def main():
    started = time.monotonic()
    flowers, species = read_flowers(Path(__file__).with_name("iris.csv"))
    training, test = split(flowers)
    print(f"{len(training)} flowers to train on, {len(test)} to test with, species: {', '.join(species)}")
    print(f"learning rate {LEARNING_RATE}, {EPOCHS} epochs, weight decay {WEIGHT_DECAY}", flush=True)

    weights = [[0.0] * len(training[0][0]) for _ in species]
    every = max(1, EPOCHS // REPORTS)
    for epoch in range(1, EPOCHS + 1):
        descend(weights, training)
        if epoch % every == 0 and epoch != EPOCHS:
            report(epoch, weights, training, test)
    loss, accuracy = report(EPOCHS, weights, training, test)

    result = {
        "test_accuracy": round(accuracy, 4),
        "test_loss": round(loss, 4),
        "seconds": round(time.monotonic() - started, 2),
    }
    print(f"result {json.dumps(result)}")
    if path := os.environ.get("HARROWICK_RESULT_PATH"):
        Path(path).write_text(json.dumps(result) + "\n")


if __name__ == "__main__":
    main()
