// Sortable, searchable tables, a page of rows at a time.
const ROWS_AT_A_TIME = 100;

const TABLE_TITLES = {
  sites: 'Call sites', modules: 'Modules', bins: 'Bins', tags: 'Tags', leaks: 'Leaks', fast_leaks: 'Fast leak summaries',
  filtered: 'Filtered frames', totals: 'Totals', paths: 'Paths',
};

const csvCell = (value) => (/[",\r\n]/.test(value) ? '"' + String(value).replaceAll('"', '""') + '"' : String(value));

class DataTable {
  // `exact`: the run knows its exact peak, so that the other one is called the recorded peak.
  constructor(table, fileName, exact) {
    this.table = table;
    this.fileName = fileName;
    this.linked = flames.graph && table.columns.some((column) => column.key === 'function' || table.key === 'modules');
    this.isExact = exact;
    this.isText = table.columns.map((column) => column.unit === 'text');
    this.shown = this.shownColumns();
    this.order = Array.from({ length: table.cells[0].length }, (_, row) => row);
    this.page = 0;
    this.sortedBy = -1;
    this.build();
    const first = ['change', 'exact_peak', 'peak'].map((key) => table.columns.findIndex((column) => column.key === key)).find((at) => at >= 0);
    this.sortBy(first === undefined ? Math.max(0, table.columns.findIndex((column) => column.unit === 'bytes')) : first);
  }

  // What a row weighs, then its name, then the other figures; addresses last.
  shownColumns() {
    const first = ['change', 'exact_peak', this.table.columns.some((column) => column.key === 'exact_peak') ? null : 'peak'];
    const rank = ({ key, unit }) => (first.includes(key) ? 0 : key === 'address' ? 3 : unit === 'text' || unit === 'line' ? 1 : 2);
    return this.table.columns.map((_, at) => at).sort((a, b) => rank(this.table.columns[a]) - rank(this.table.columns[b]) || a - b);
  }

  build() {
    const id = 'search-' + this.table.key;
    this.search = element('input', { type: 'search', id, oninput: () => { this.page = 0; this.fill(); } });
    this.status = element('span', { className: 'note', role: 'status' });
    this.back = element('button', { type: 'button', onclick: () => this.turn(-1) }, '\u25c0 Previous');
    this.forth = element('button', { type: 'button', onclick: () => this.turn(1) }, 'Next \u25b6');
    const csv = element('button', { type: 'button', className: 'csv', onclick: () => this.download() }, 'CSV');
    this.heads = this.table.columns.map((column, at) => element('th', { className: this.isText[at] ? 'text' : '', scope: 'col' },
      element('button', { type: 'button', title: READING[column.key] || column.title, onclick: () => this.sortBy(at) }, this.titleOf(column))));
    this.body = element('tbody');
    const title = TABLE_TITLES[this.table.key] || this.table.key;
    this.section = element('section', { 'data-table': this.table.key }, element('h2', {}, title),
      element('div', { className: 'controls' }, element('label', { htmlFor: id }, 'Search'), this.search, csv, this.back, this.forth, this.status),
      element('div', { className: 'table-box' }, element('table', { 'aria-label': title },
        element('thead', {}, this.row('th', this.shown.map((at) => this.heads[at]), null)), this.body, this.foot())));
  }

  titleOf({ key, title }) {
    const told = key.startsWith('exact_') ? title.replace('Exact peak', 'Peak') : this.isExact && key.startsWith('peak') ? 'Recorded ' + title.toLowerCase() : title;
    return told;
  }

  // With a first cell for the way into the flame graph, in tables that have one.
  row(tag, cells, link) { return element('tr', {}, this.linked ? element(tag, {}, link) : null, ...cells); }

  link(row) {
    const part = this.linked && flames.graph.partOf(this.table, row);
    return part ? element('button', { type: 'button', className: 'link', title: 'Who called it', 'aria-label': 'Show in the flame graph',
      onclick: () => flames.graph.show(part) }, '\u25a4') : null;
  }

  // The rows that had no place in this page, as one.
  foot() {
    if (this.table.rest_rows === 0) return null;
    const cells = this.table.columns.map((column, at) => element('td', { className: this.isText[at] ? 'text' : '' },
      this.table.rest[at] === null ? '' : figureText(this.table.rest[at], column.unit)));
    cells[this.shown.find((at) => this.isText[at])].textContent = 'rest: ' + groupedText(this.table.rest_rows) + ' rows';
    return element('tfoot', {}, this.row('td', this.shown.map((at) => cells[at]), null));
  }

  value(at, row) { return this.isText[at] ? textOf(this.table.cells[at][row]) : this.table.cells[at][row]; }

  // Figures begin with the highest, texts with the first; the same column again turns the order round.
  sortBy(at) {
    this.down = this.sortedBy === at ? !this.down : !this.isText[at];
    this.sortedBy = at;
    const sign = this.down ? -1 : 1;
    this.order.sort((a, b) => {
      const [x, y] = [this.value(at, a), this.value(at, b)];
      return x < y ? -sign : x > y ? sign : a - b;
    });
    this.heads.forEach((head, i) => {
      if (i === at) head.setAttribute('aria-sort', this.down ? 'descending' : 'ascending');
      else head.removeAttribute('aria-sort');
    });
    this.page = 0;
    this.fill();
  }

  turn(by) {
    this.page += by;
    this.fill();
  }

  matching() {
    const wanted = this.search.value.trim().toLowerCase();
    if (!wanted) return this.order;
    return this.order.filter((row) => this.isText.some((is, at) => is && this.value(at, row).toLowerCase().includes(wanted)));
  }

  fill() {
    const rows = this.matching();
    const from = this.page * ROWS_AT_A_TIME;
    const shown = rows.slice(from, from + ROWS_AT_A_TIME);
    this.back.disabled = this.page === 0;
    this.forth.disabled = from + ROWS_AT_A_TIME >= rows.length;
    const of = rows.length === this.table.rows ? '' : ' (of ' + groupedText(this.table.rows) + ')';
    this.status.textContent = rows.length === 0 ? 'no row' + of
      : 'rows ' + groupedText(from + 1) + ' to ' + groupedText(from + shown.length) + ' of ' + groupedText(rows.length) + of;
    this.body.replaceChildren(...shown.map((row) => this.row('td', this.shown.map((at) => this.cell(this.table.columns[at], at, row)), this.link(row))));
  }

  cell(column, at, row) {
    const value = this.value(at, row);
    if (column.key === 'file') return element('td', { className: 'text path', title: value }, element('bdi', { dir: 'ltr' }, value));
    if (column.key === 'function') return element('td', { className: 'text', title: value }, readableOf(this.table.cells[at][row]));
    if (this.isText[at]) return element('td', { className: 'text', title: value }, value);
    const text = column.key === 'change' && value > 0 ? '+' + figureText(value, column.unit) : figureText(value, column.unit);
    return element('td', { title: groupedText(value), className: column.key === 'change' && value > 0 ? 'grown' : '' }, text);
  }

  // The rows as the report has them, in its order and with its titles.
  csv() {
    const lines = [this.table.columns.map((column) => csvCell(column.title)).join(',')];
    for (let row = 0; row < this.order.length; ++row) {
      lines.push(this.table.columns.map((_, at) => csvCell(this.value(at, row))).join(','));
    }
    if (this.table.rest_rows > 0) {
      const cells = this.table.rest.map((sum) => (sum === null ? '' : sum));
      cells[this.isText.indexOf(true)] = 'rest: ' + this.table.rest_rows + ' rows';
      lines.push(cells.map(csvCell).join(','));
    }
    return lines.join('\n') + '\n';
  }

  download() {
    const address = URL.createObjectURL(new Blob([this.csv()], { type: 'text/csv' }));
    const link = element('a', { href: address, download: this.fileName + '.' + this.table.key + '.csv' });
    document.body.append(link);
    link.click();
    link.remove();
    setTimeout(() => URL.revokeObjectURL(address), 10000);
  }
}
