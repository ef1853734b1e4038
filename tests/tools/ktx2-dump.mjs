// Reads a KTX2 file with ktx-parse, a reader independent of zgu, and writes
// what it found for the end-to-end tests: info.json (header, data format
// descriptor, key/value data, where each level's bytes were found) and the
// bytes of each level as level<N>.bin.
// Usage: node ktx2-dump.mjs KTX_PARSE_MODULE FILE OUT_DIR
import { readFileSync, writeFileSync } from 'node:fs';
import { pathToFileURL } from 'node:url';

const [modulePath, input, outDir] = process.argv.slice(2);
const { read } = await import(pathToFileURL(modulePath).href);

// A fresh array, so that byte offsets into it are offsets into the file.
const file = new Uint8Array(readFileSync(input));
const container = read(file);

const text = (value) =>
  typeof value === 'string' ? value : new TextDecoder().decode(value).replace(/\0+$/, '');
const keyValue = {};
for (const [key, value] of Object.entries(container.keyValue)) keyValue[key] = text(value);

const levels = container.levels.map((level, index) => {
  writeFileSync(`${outDir}/level${index}.bin`, level.levelData);
  const inFile = level.levelData.buffer === file.buffer;
  return {
    byteLength: level.levelData.byteLength,
    uncompressedByteLength: level.uncompressedByteLength,
    offset: inFile ? level.levelData.byteOffset : null,
  };
});

writeFileSync(`${outDir}/info.json`, JSON.stringify({
  vkFormat: container.vkFormat,
  typeSize: container.typeSize,
  pixelWidth: container.pixelWidth,
  pixelHeight: container.pixelHeight,
  pixelDepth: container.pixelDepth,
  layerCount: container.layerCount,
  faceCount: container.faceCount,
  levelCount: container.levelCount,
  supercompressionScheme: container.supercompressionScheme,
  fileSize: file.byteLength,
  dataFormatDescriptor: container.dataFormatDescriptor,
  keyValue,
  levels,
}, null, 2));
