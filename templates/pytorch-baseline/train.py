"""Tells two interleaved spirals apart with a small network, in PyTorch.

A run is told by two environment variables where its result and its telemetry go. Without them it only prints.
"""

import json
import math
import os
import time

import torch
from torch import nn

HIDDEN = 64
LEARNING_RATE = 0.01
EPOCHS = 60
BATCH = 64
POINTS = 2000  # of each spiral
NOISE = 0.05

SEED = 1
TEST_SHARE = 0.3


def device():
    if torch.cuda.is_available():
        return torch.device("cuda")
    if torch.backends.mps.is_available():
        return torch.device("mps")
    return torch.device("cpu")


def make_points():
    """Gives the points as rows of (x, y), with the class of each."""
    turn = 0.5 + 3.0 * torch.rand(2 * POINTS).sqrt()
    labels = torch.arange(2 * POINTS) % 2
    angle = turn + labels * math.pi
    points = torch.stack((angle.cos(), angle.sin()), dim=1) * turn[:, None] / 3.5
    return points + NOISE * torch.randn_like(points), labels.float()


@torch.no_grad()
def measure(model, points, labels):
    """Gives the mean cross entropy and the share of points that come out right."""
    model.eval()
    scores = model(points).squeeze(1)
    loss = nn.functional.binary_cross_entropy_with_logits(scores, labels)
    accuracy = ((scores > 0) == (labels > 0.5)).float().mean()
    return {"loss": loss.item(), "accuracy": accuracy.item()}


def train_epoch(model, optimizer, points, labels):
    model.train()
    for batch in torch.randperm(len(points), device=points.device).split(BATCH):
        scores = model(points[batch]).squeeze(1)
        loss = nn.functional.binary_cross_entropy_with_logits(scores, labels[batch])
        optimizer.zero_grad()
        loss.backward()
        optimizer.step()


def report(step, train, test):
    print(f"epoch {step:3d}  train loss {train['loss']:.4f}  test accuracy {test['accuracy']:.3f}", flush=True)
    if path := os.environ.get("HARROWICK_TELEMETRY_PATH"):
        with open(path, "a") as file:
            file.write(json.dumps({"step": step, "train": train, "test": test}) + "\n")


def main():
    started = time.monotonic()
    torch.manual_seed(SEED)
    where = device()
    print(f"training on {where}", flush=True)
    points, labels = (tensor.to(where) for tensor in make_points())
    test_size = round(len(points) * TEST_SHARE)
    training, held_back = (points[test_size:], labels[test_size:]), (points[:test_size], labels[:test_size])

    model = nn.Sequential(nn.Linear(2, HIDDEN), nn.Tanh(), nn.Linear(HIDDEN, HIDDEN), nn.Tanh(), nn.Linear(HIDDEN, 1))
    model.to(where)
    optimizer = torch.optim.Adam(model.parameters(), lr=LEARNING_RATE)
    for epoch in range(1, EPOCHS + 1):
        train_epoch(model, optimizer, *training)
        test = measure(model, *held_back)
        report(epoch, measure(model, *training), test)

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
