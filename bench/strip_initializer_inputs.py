#!/usr/bin/env python3
"""Copies an ONNX model without its weights among the graph inputs, so that a runtime may
treat them as constants (older exporters list every initializer as an input too).
  /usr/bin/python3 bench/strip_initializer_inputs.py IN.onnx OUT.onnx"""
import sys

import onnx

model = onnx.load(sys.argv[1])
weights = {t.name for t in model.graph.initializer}
keep = [i for i in model.graph.input if i.name not in weights]
del model.graph.input[:]
model.graph.input.extend(keep)
onnx.save(model, sys.argv[2])
print(f"{len(weights)} weights moved out of the inputs; inputs left: {[i.name for i in keep]}")
