export const title = 'Из модуля';
