// How to read each figure, in a sentence.
const READING = {
  current: 'Bytes not yet freed when the reports were written.',
  max: 'The highest that this row itself ever held, whenever that was.',
  exact_peak: 'What this row held at the peak of the whole process, to the byte.',
  exact_peak_blocks: 'Blocks that this row held at the peak of the whole process.',
  peak: 'What this row held at the recorded peak of the whole process.',
  cumulative: 'All bytes ever allocated here, freed or not.',
  requested: 'What callers asked for; the rest of the cumulative bytes is the allocator\u2019s rounding.',
  mismatched: 'Bytes of small blocks that another thread freed than the one that allocated them.',
  current_blocks: 'Blocks not yet freed when the reports were written.',
  max_blocks: 'The most blocks that this row ever held.',
  peak_blocks: 'Blocks held at the recorded peak of the whole process.',
  cumulative_blocks: 'Blocks ever allocated here.',
  address: 'Where the call returns to; OTHER is what no call site could be found for.',
  module: 'The program or library whose code allocated.',
  name: 'The module, bin or tag.',
  before: 'The figure in the first run.',
  after: 'The figure in the second run.',
  change: 'After less before.',
};

const FIGURES_AT_FIRST = 8;

// One line of them; the others on demand, so that the first picture is not pushed off the screen.
function showFigures(process, holder) {
  const list = (figures) => element('dl', { className: 'figures' }, ...figures.map((figure) =>
    element('div', { title: figure.explanation + ' (' + groupedText(figure.value) + ')' },
      element('dt', {}, figure.title), element('dd', {}, figureText(figure.value, figure.unit)))));
  const more = process.figures.slice(FIGURES_AT_FIRST);
  holder.append(list(process.figures.slice(0, FIGURES_AT_FIRST)));
  if (more.length) holder.append(element('details', {}, element('summary', { className: 'note' }, 'More figures'), list(more)));
}

function showReading(process, holder) {
  const list = element('dl', { className: 'reading' });
  const keys = new Set(process.tables.flatMap((table) => table.columns.map((column) => column.key)));
  const titles = new Map(process.tables.flatMap((table) => table.columns.map((column) => [column.key, column.title])));
  for (const key of keys) {
    if (READING[key]) list.append(element('dt', {}, titles.get(key)), element('dd', {}, READING[key]));
  }
  for (const figure of process.figures) {
    if (!keys.has(figure.key)) list.append(element('dt', {}, figure.title), element('dd', {}, figure.explanation));
  }
  holder.append(element('h2', {}, 'How to read the figures'), list);
}

function showProcess(process) {
  const main = document.getElementById('main');
  main.replaceChildren();
  if (data.left_out.length) {
    main.append(element('div', { className: 'left-out', role: 'alert' }, 'Left out, because it could not be read:',
      ...data.left_out.map((line) => element('div', {}, line))));
  }
  main.append(element('p', { className: 'note' }, process.folder + (process.tracked.length ? ' \u2014 tracked: ' + process.tracked.join(', ') : '')));
  showFigures(process, main);
  drawFlame(process, main);
  drawProcesses(main);
  drawCharts(process, main);
  drawResident(process, main);
  const sites = process.tables.find((table) => table.key === 'sites');
  if (sites && columnOf(sites, 'cumulative')) new TreeMap(sites, main);
  for (const table of process.tables) main.append(new DataTable(table, process.name.replaceAll(/[^\w.-]+/g, '_'), process.flame !== null).section);
  showReading(process, main);
}

function start() {
  document.title = document.getElementById('title').textContent = data.title;
  if (data.processes.length > 1) {
    const choice = element('select', { id: 'process' },
      ...data.processes.map((process, i) => element('option', { value: String(i) }, process.name)));
    choice.onchange = () => showProcess(data.processes[Number(choice.value)]);
    document.getElementById('chooser').append(element('label', { htmlFor: 'process' }, 'Process '), choice);
  }
  showProcess(data.processes[0]);
}

start();
