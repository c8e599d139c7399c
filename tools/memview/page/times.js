// Seconds beside samples, and the processes of a run on one axis.
const hasSeconds = (process) => process.clock !== null && process.charts.length > 0 && process.charts.every((chart) => chart.times.length > 0);
const usesSeconds = (process) => charts.inSeconds && hasSeconds(process);

const clocks = data.processes.filter((process) => process.clock !== null);
const runStart = d3.min(clocks, (process) => process.clock.start) || 0;
const secondsOf = (process, milliseconds) => (process.clock.start - runStart + milliseconds) / 1000;
const endOf = (process) => secondsOf(process, process.clock.length);
const wholeRunSeconds = () => d3.max(clocks, endOf) || 0;
const secondsText = (seconds) => seconds.toLocaleString('en-US', { maximumFractionDigits: 3 }) + ' s';

// Parents before children, children behind their parent: [{process, depth}].
function processTree() {
  const byNumber = new Map(clocks.map((process) => [process.clock.process, process]));
  const parentOf = (process) => { const found = byNumber.get(process.clock.parent); return found === process ? undefined : found; };
  const lines = [];
  const walk = (parent, depth) => {
    if (depth > clocks.length) return;
    const children = clocks.filter((process) => parentOf(process) === parent);
    for (const process of children.sort((a, b) => a.clock.start - b.clock.start)) {
      lines.push({ process, depth });
      walk(process, depth + 1);
    }
  };
  walk(undefined, 0);
  return lines;
}

// What all processes together held, a step at each sample of any of them: [[seconds, bytes]]. A process that has
// ended holds nothing.
function sumOverProcesses() {
  const steps = [];
  for (const process of clocks) {
    const chart = process.charts.find((one) => one.stacked && one.times.length > 0);
    let before = 0;
    (chart ? chart.rows : []).forEach((row, i) => {
      const held = d3.sum(row.slice(2));
      steps.push([secondsOf(process, chart.times[i]), held - before]);
      before = held;
    });
    steps.push([endOf(process), -before]);
  }
  let sum = 0;
  return steps.sort((a, b) => a[0] - b[0]).map(([time, change]) => [time, sum += change]);
}

function lineOf({ process, depth }, whole) {
  const from = 100 * secondsOf(process, 0) / whole, length = 100 * process.clock.length / 1000 / whole;
  const bar = element('span', { className: 'bar' });
  bar.style.marginLeft = from + '%';
  bar.style.width = Math.max(length, 0.3) + '%';
  const times = secondsText(secondsOf(process, 0)) + ' to ' + secondsText(endOf(process));
  const name = element('th', { scope: 'row', className: 'text', title: process.name }, '\u2003'.repeat(depth) + process.name);
  return element('tr', {}, name, element('td', { className: 'lane', title: times }, bar), element('td', {}, times));
}

// The tree of the processes with their starts and ends, and the sum over all of them.
function drawProcesses(holder) {
  if (clocks.length < 2) return;
  const whole = Math.max(wholeRunSeconds(), 0.001);
  const sums = sumOverProcesses();
  const highest = d3.max(sums, (step) => step[1]) || 0;
  const at = sums.find((step) => step[1] === highest);
  holder.append(element('h2', {}, 'All processes'),
    element('table', { className: 'processes', id: 'processes' }, ...processTree().map((line) => lineOf(line, whole))));
  if (highest === 0) return;
  const box = element('div', { className: 'chart low', id: 'all-processes', role: 'img', 'aria-label': 'What all processes held together' });
  holder.append(element('p', { className: 'note' }, 'Together they held ' + bytesText(highest) + ' at most, after ' + secondsText(at[0]) + '.'), box);
  new Dygraph(box, sums, {
    ...themeOptions(), labels: ['seconds', 'all processes'], stepPlot: true, fillGraph: true, strokeWidth: 1, includeZero: true, dateWindow: [0, whole],
    axes: { x: { axisLabelFormatter: secondsText }, y: { axisLabelFormatter: bytesText, axisLabelWidth: 74, labelsKMG2: true } },
  });
}
