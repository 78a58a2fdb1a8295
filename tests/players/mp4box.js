// Prints what mp4box.js finds in a file, as JSON: for each track its codec, samples, bytes and seconds.
const fs = require("fs");
const { createFile } = require("mp4box");

const file = createFile();
const tracks = [];
file.onError = (module, message) => { throw new Error(module + ": " + message); };
file.onReady = (info) => {
  for (const track of info.tracks) {
    tracks[track.id] = { codec: track.codec, samples: 0, bytes: 0, seconds: track.samples_duration / track.timescale };
    file.setExtractionOptions(track.id, null, { nbSamples: 100 });
  }
  file.start();
};
file.onSamples = (id, user, samples) => {
  tracks[id].samples += samples.length;
  for (const sample of samples) tracks[id].bytes += sample.data.byteLength;
};
const bytes = fs.readFileSync(process.argv[2]);
const buffer = bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.byteLength);
buffer.fileStart = 0;
file.appendBuffer(buffer);
file.flush();
console.log(JSON.stringify(tracks.filter(Boolean)));
