// The bytes of an exchange as named values, from the layouts the document
// gives of the device's blocks and payloads ("x-layouts": name, offset, size
// and type of each value; numbers little-endian, as the device stores them).

function bytesOf(hex) {
  const bytes = new Uint8Array(Math.floor((hex || '').length / 2));
  for (let i = 0; i < bytes.length; i++) {
    bytes[i] = parseInt(hex.substr(i * 2, 2), 16);
  }
  return bytes;
}

function valueAt(view, bytes, f) {
  switch (f.type) {
    case 'u8':
      return view.getUint8(f.offset);
    case 'u32':
      return view.getUint32(f.offset, true);
    case 'i32':
      return view.getInt32(f.offset, true);
    case 'f64':
      return view.getFloat64(f.offset, true);
    case 'text': {
      const field = bytes.subarray(f.offset, f.offset + f.size);
      const end = field.indexOf(0);
      return new TextDecoder().decode(end >= 0 ? field.subarray(0, end) : field);
    }
    default:
      return undefined;
  }
}

// [{name, value}] of every value of the layout that the bytes hold whole;
// null without a layout.
export function decode(hex, layout) {
  if (!Array.isArray(layout) || layout.length === 0) {
    return null;
  }
  const bytes = bytesOf(hex);
  const view = new DataView(bytes.buffer);
  return layout.filter((f) => f.offset + f.size <= bytes.length)
    .map((f) => ({ name: f.name, value: valueAt(view, bytes, f) }));
}
