// ONNX Runtime's time for the 320x240 face network on one core, for bench/README.md.
//   /usr/bin/python3 bench/strip_initializer_inputs.py MODEL.onnx /tmp/face-ort.onnx
//   (cd SOMEWHERE && npm install --ignore-scripts onnxruntime-node)
//   NODE_PATH=SOMEWHERE/node_modules node bench/ort_face.js /tmp/face-ort.onnx [runs]
const ort = require('onnxruntime-node');

async function main() {
  const path = process.argv[2];
  const runs = parseInt(process.argv[3] || '300', 10);
  const session = await ort.InferenceSession.create(path, {
    intraOpNumThreads: 1, interOpNumThreads: 1, executionMode: 'sequential', graphOptimizationLevel: 'all',
    logSeverityLevel: 3,
  });
  const x = new Float32Array(3 * 240 * 320);
  for (let i = 0; i < x.length; ++i) x[i] = (i % 251) / 125 - 1;
  const feeds = { [session.inputNames[0]]: new ort.Tensor('float32', x, [1, 3, 240, 320]) };
  for (let i = 0; i < 20; ++i) await session.run(feeds);
  const times = [];
  for (let i = 0; i < runs; ++i) {
    const t0 = process.hrtime.bigint();
    const c0 = process.cpuUsage();
    await session.run(feeds);
    const c = process.cpuUsage(c0);
    times.push([Number(process.hrtime.bigint() - t0) / 1e6, (c.user + c.system) / 1e3]);
  }
  const wall = times.map((t) => t[0]).sort((a, b) => a - b);
  const cpu = times.map((t) => t[1]).reduce((a, b) => a + b, 0) / runs;
  console.log(`onnxruntime: wall min ${wall[0].toFixed(3)} ms, median ${wall[runs >> 1].toFixed(3)} ms, ` +
              `cpu mean ${cpu.toFixed(3)} ms over ${runs} runs`);
}
main();
