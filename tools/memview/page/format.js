'use strict';

// The data of the page, and how figures and elements are made of it. Names from the reports only ever become text
// nodes and attribute values; nothing here parses markup.
const data = JSON.parse(document.getElementById('data').textContent);
const textOf = (number) => data.texts[number];
// A function's name as people read it; textOf has the whole one.
const readableOf = (number) => data.readable[number] ?? textOf(number);

const UNITS = ['B', 'KiB', 'MiB', 'GiB', 'TiB', 'PiB'];

function bytesText(value) {
  let size = Math.abs(value), unit = 0;
  while (size >= 1023.95 && unit < UNITS.length - 1) { size /= 1024; ++unit; }
  return (value < 0 ? '-' : '') + (unit === 0 ? size.toFixed(0) : size.toFixed(1)) + ' ' + UNITS[unit];
}

const groupedText = (value) => value.toLocaleString('en-US');
const figureText = (value, unit) => (unit === 'bytes' ? bytesText(value) : unit === 'line' ? String(value) : groupedText(value));

// element('td', {className: 'text', title: name}, name)
function element(tag, properties, ...children) {
  const made = document.createElement(tag);
  for (const [key, value] of Object.entries(properties || {})) {
    if (key.startsWith('aria-') || key.startsWith('data-') || key === 'role') made.setAttribute(key, value);
    else made[key] = value;
  }
  made.append(...children.filter((child) => child !== null));
  return made;
}

const baseName = (name) => (name.startsWith('/') ? name.slice(name.lastIndexOf('/') + 1) : name);

const cssValue = (name) => getComputedStyle(document.documentElement).getPropertyValue(name).trim();

// Colours far apart for neighbours, legible on light and on dark ground.
const seriesColour = (i) => d3.hsl((i * 137.508) % 360, 0.58, 0.5 + 0.08 * ((i % 3) - 1)).toString();
